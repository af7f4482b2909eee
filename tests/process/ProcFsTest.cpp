// Reading who a process is from /proc, as the caller check does, with real
// processes started under chosen names.
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "command/ProcessIdentity.h"
#include "process/ProcFs.h"

namespace {

// A child that execs /bin/sleep under the given argv[0]; killed at the end.
class NamedProcess {
public:
    explicit NamedProcess(const char* name) {
        mPid = fork();
        if (mPid == 0) {
            execl("/bin/sleep", name, "30", static_cast<char*>(nullptr));
            _exit(127);
        }
        // Wait until the exec has replaced the test's own command line.
        std::string want(name);
        for (int i = 0; i < 500; ++i) {
            char cmdline[201];
            if (pelk::readProcCmdline(mPid, cmdline, sizeof(cmdline)) > 0 && want == cmdline) break;
            usleep(2000);
        }
    }
    ~NamedProcess() {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
    pid_t pid() const { return mPid; }

private:
    pid_t mPid;
};

TEST(ProcessIdentity, CommandLineIsReadUpToTheBound) {
    std::string longName(300, 'z');
    NamedProcess named("system_server");
    NamedProcess longOne(longName.c_str());

    char cmdline[201];
    int n = pelk::readProcCmdline(named.pid(), cmdline, sizeof(cmdline));
    EXPECT_EQ(std::string("system_server"), cmdline) << "only the text before the first NUL counts";
    EXPECT_EQ(static_cast<int>(sizeof("system_server") + sizeof("30")), n);

    EXPECT_EQ(200, pelk::readProcCmdline(longOne.pid(), cmdline, sizeof(cmdline)));
    EXPECT_EQ(std::string(200, 'z'), cmdline) << "cut and still terminated";

    EXPECT_EQ(-1, pelk::readProcCmdline(-1, cmdline, sizeof(cmdline)));
}

TEST(ProcessIdentity, StatusNumbers) {
    NamedProcess child("zygote64");
    EXPECT_EQ(getpid(), pelk::readProcStatusNumber(child.pid(), "PPid:"));
    EXPECT_EQ(static_cast<int>(getuid()), pelk::readProcStatusNumber(child.pid(), "Uid:"));
    EXPECT_EQ(-1, pelk::readProcStatusNumber(child.pid(), "NoSuchKey:"));
    EXPECT_EQ(-1, pelk::readProcStatusNumber(-1, "PPid:"));
}

TEST(ProcessIdentity, GetProcCommand) {
    NamedProcess named("system_server");
    char out[256] = {0};
    EXPECT_EQ(13, getProcCommand(named.pid(), out));
    EXPECT_STREQ("system_server", out);

    liblog_clear();
    char none[256] = {0};
    EXPECT_EQ(-1, getProcCommand(999999, none));
    EXPECT_EQ(1, liblog_count(
                     "Failed to open file /proc/999999/cmdline for reading : " + std::string(strerror(ENOENT)) + "\n",
                     "pelkd", ANDROID_LOG_ERROR, LOG_ID_MAIN));
}

}  // namespace
