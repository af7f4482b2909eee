// The remount workers' list: one worker per user, reaped by the reaper.
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <devprofile/DeviceProfile.h>

#include "manager/Pelk.h"

namespace {

pid_t spawn(bool exitAtOnce) {
    pid_t pid = fork();
    if (pid == 0) {
        if (!exitAtOnce) pause();
        _exit(0);
    }
    return pid;
}

class ChildList : public testing::Test {
protected:
    void SetUp() override { Pelk::remountChildList.clear(); }
    void TearDown() override { Pelk::remountChildList.clear(); }
};

TEST_F(ChildList, OneWorkerPerUserAndReaping) {
    pid_t done = spawn(true);
    pid_t running = spawn(false);
    Pelk::addChildToList(10, done);
    Pelk::addChildToList(10, running);  // user 10 keeps its first worker
    Pelk::addChildToList(11, running);
    EXPECT_EQ(Pelk::remountChildList[10], done);
    usleep(100000);  // let the first one end

    Pelk::clearChildList();
    // The finished worker is reaped; the running one is told to end.
    EXPECT_TRUE(Pelk::remountChildList.empty());
    EXPECT_NE(0, kill(running, 0)) << "the running worker was not ended";
}

TEST_F(ChildList, WaitingForAUsersWorker) {
    devprofile::set("time.scale", "0.001");
    EXPECT_TRUE(Pelk::waitForThreadAvailable(10));
    Pelk::addChildToList(10, 999999);
    liblog_clear();
    EXPECT_FALSE(Pelk::waitForThreadAvailable(10));
    // Logged with "%d" as it stands, on purpose.
    EXPECT_EQ(1, liblog_count("Failed to ready for starting thread for User %d", "pelkd", ANDROID_LOG_ERROR));
}

TEST_F(ChildList, AWorkerThatIsNoLongerOursIsForgottenNotSignalled) {
    Pelk::addChildToList(12, 1);  // init: never our child
    Pelk::clearChildList();
    EXPECT_TRUE(Pelk::remountChildList.empty());
}

}  // namespace
