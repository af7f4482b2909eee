// The daemon's start-up as a caller sees it: the unlock state it learns from
// the mount table, the "is_mounted" answers that follow from it, and a
// socket that cannot be taken.
#include <sys/mount.h>
#include <sys/stat.h>

#include <devprofile/DeviceProfile.h>

#include "Daemon.h"
#include "support/Mounts.h"

namespace {

using e2e::pelkctl;

// A legacy container on a device without file-based encryption: the one
// case where "is_mounted" can say "failed".
class LegacyDevice : public e2e::DaemonTest {
protected:
    void prepareDevice() override {
        devprofile::set("fbe", "0");
        devprofile::set("user.10", "zanth,legacy");
        devprofile::set("user.11", "zanth");
    }
};

TEST_F(LegacyDevice, IsMountedFollowsTheDeAreas) {
    auto down = pelkctl({}, "is_mounted 10\nis_mounted 11\nis_mounted 12\n");
    EXPECT_EQ((std::vector<std::string>{"281 1 failed", "200 2 success", "200 3 success"}), down.lines)
        << "only the legacy user can be reported down";
    ASSERT_TRUE(mounts::mountAreas(10, Partition::LIST_DE_STORAGE));
    auto up = pelkctl({"is_mounted", "10"});
    EXPECT_EQ(std::vector<std::string>{"200 1 success"}, up.lines);
}

class RestartedDaemon : public LegacyDevice {
protected:
    void prepareDevice() override {
        LegacyDevice::prepareDevice();
        // CE storage mounted by the daemon's previous life.
        ASSERT_TRUE(mounts::mountAreas(10, Partition::LIST_CE_STORAGE));
    }
};

TEST_F(RestartedDaemon, MountedCeDataMeansUnlockedAndCeAreasDecide) {
    // No DE area is mounted, yet the CE areas answer for the unlocked user.
    EXPECT_EQ(std::vector<std::string>{"200 1 success"}, pelkctl({"is_mounted", "10"}).lines);
    ASSERT_EQ(0, umount2(mounts::areaPath(10, PARTITION_CE_MISC).c_str(), MNT_DETACH));
    EXPECT_EQ(std::vector<std::string>{"281 1 failed"}, pelkctl({"is_mounted", "10"}).lines);
}

TEST(DaemonStartup, ASocketThatCannotBeTakenIsLoggedAndTheOtherServes) {
    liblog_clear();
    devprofile::failNext("startListener");
    pid_t pid = fork();
    if (pid == 0) {
        std::string path = sim::toolPath("pelkd");
        execl(path.c_str(), "pelkd", static_cast<char*>(nullptr));
        _exit(127);
    }
    for (int i = 0; i < 1000 && !e2e::canConnect("/dev/socket/ppm"); ++i) usleep(10000);
    ASSERT_TRUE(e2e::canConnect("/dev/socket/ppm"));
    EXPECT_FALSE(e2e::canConnect("/dev/socket/pelk"));
    EXPECT_EQ(1, liblog_count(std::string("Unable to start DirEncryptionListener (") + strerror(EADDRINUSE) + ")",
                              "pelkd", ANDROID_LOG_DEBUG, LOG_ID_SYSTEM));
    EXPECT_EQ(std::vector<std::string>{"200 1 success"},
              pelkctl({"--socket", "ppm", "unmount_privatemode", "0", "/x"}).lines);
    EXPECT_EQ(0, e2e::stopDaemon(pid));
}

}  // namespace
