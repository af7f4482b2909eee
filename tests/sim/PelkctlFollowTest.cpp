// pelkctl --follow: system_server's view of the daemon's broadcasts. The
// test plays the daemon with a listener on "pelk" and broadcasts through it.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <sysutils/FrameworkListener.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "Sandbox.h"
#include "base/UniqueFd.h"
#include "base/UniqueHandle.h"

namespace {

// A running "pelkctl --follow" and what it has printed so far.
class Follower {
public:
    Follower() {
        int out[2];
        int err[2];
        if (pipe2(out, O_CLOEXEC) != 0) return;
        mOut.reset(out[0]);
        pelk::UniqueFd outWrite(out[1]);
        if (pipe2(err, O_CLOEXEC) != 0) return;
        mErr.reset(err[0]);
        pelk::UniqueFd errWrite(err[1]);
        mPid = fork();
        if (mPid == 0) {
            dup2(outWrite.get(), 1);
            dup2(errWrite.get(), 2);
            std::string path = sim::toolPath("pelkctl");
            execl(path.c_str(), "pelkctl", "--follow", static_cast<char*>(nullptr));
            _exit(127);
        }
    }
    ~Follower() {
        if (mPid > 0) {
            kill(mPid, SIGKILL);
            waitpid(mPid, nullptr, 0);
        }
    }

    // Reads standard output until it holds `line` (a whole line) or 5 s passed.
    bool waitForLine(const std::string& line) {
        for (int i = 0; i < 500; ++i) {
            if (hasLine(line)) return true;
            readFor(10);
        }
        return hasLine(line);
    }
    // Broadcasts a line until pelkctl prints it: the listener counts a client
    // only once its thread accepted it, which is after pelkctl connected.
    bool waitUntilFollowing(FrameworkListener* listener) {
        for (int i = 0; i < 500; ++i) {
            listener->sendBroadcast(610, "ready", false);
            readFor(10);
            if (hasLine("610 ready")) return true;
        }
        return false;
    }
    // Exit status once pelkctl ended; -1 when it was killed by a signal.
    int exitStatus() {
        int status = 0;
        if (waitpid(mPid, &status, 0) != mPid) return -1;
        mPid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string errors() {
        std::string text;
        char buf[512];
        ssize_t n;
        while ((n = read(mErr.get(), buf, sizeof(buf))) > 0) text.append(buf, static_cast<size_t>(n));
        return text;
    }
    pid_t pid() const { return mPid; }
    const std::string& output() const { return mText; }

private:
    bool hasLine(const std::string& line) const {
        return mText.rfind(line + "\n", 0) == 0 || mText.find("\n" + line + "\n") != std::string::npos;
    }
    void readFor(int ms) {
        pollfd fd{mOut.get(), POLLIN, 0};
        if (poll(&fd, 1, ms) <= 0) return;
        char buf[4096];
        ssize_t n = read(mOut.get(), buf, sizeof(buf));
        if (n > 0) mText.append(buf, static_cast<size_t>(n));
    }

    pid_t mPid = -1;
    pelk::UniqueFd mOut;
    pelk::UniqueFd mErr;
    std::string mText;
};

// Processes of the device whose command line is exactly `name`.
int processesNamed(const std::string& name) {
    int count = 0;
    pelk::UniqueDir proc(opendir("/proc"));
    while (dirent* e = proc ? readdir(proc.get()) : nullptr) {
        std::ifstream in(std::string("/proc/") + e->d_name + "/cmdline");
        std::string cmdline;
        std::getline(in, cmdline, '\0');
        if (cmdline == name) ++count;
    }
    return count;
}

}  // namespace

TEST(PelkctlFollow, PrintsEachBroadcastUntilTheDaemonCloses) {
    FrameworkListener daemon("pelk", true);
    ASSERT_EQ(daemon.startListener(), 0);
    Follower follower;
    ASSERT_TRUE(follower.waitUntilFollowing(&daemon)) << follower.output();

    daemon.sendBroadcast(610, "10 21 4242 0 /data/user/10/a b.txt", false);
    daemon.sendBroadcast(610, "10 25 4243 -7 /data/user/10/old.txt", false);
    ASSERT_TRUE(follower.waitForLine("610 10 25 4243 -7 /data/user/10/old.txt")) << follower.output();
    EXPECT_NE(follower.output().find("610 10 21 4242 0 /data/user/10/a b.txt\n610 10 25 4243"), std::string::npos)
        << follower.output();

    ASSERT_EQ(daemon.stopListener(), 0);
    EXPECT_EQ(follower.exitStatus(), 0);
    std::string errors = follower.errors();
    EXPECT_NE(errors.find("pelkctl: following /dev/socket/pelk\n"), std::string::npos) << errors;
    EXPECT_NE(errors.find("the daemon closed the connection"), std::string::npos) << errors;
}

TEST(PelkctlFollow, StopSignalEndsItAndLeavesNoTalkerBehind) {
    FrameworkListener daemon("pelk", true);
    ASSERT_EQ(daemon.startListener(), 0);
    for (int sig : {SIGTERM, SIGINT}) {
        Follower follower;
        ASSERT_TRUE(follower.waitUntilFollowing(&daemon)) << follower.output();
        EXPECT_EQ(processesNamed("system_server"), 1);
        ASSERT_EQ(kill(follower.pid(), sig), 0);  // to the zygote stand-in only
        EXPECT_EQ(follower.exitStatus(), 0) << sig;
        EXPECT_EQ(processesNamed("system_server"), 0) << sig;
    }
    daemon.stopListener();
}

TEST(PelkctlFollow, RefusesWordsAndAMissingDaemon) {
    std::string path = sim::toolPath("pelkctl");
    EXPECT_EQ(WEXITSTATUS(system((path + " --follow is_mounted 10 2>/dev/null").c_str())), 2);
    EXPECT_EQ(WEXITSTATUS(system((path + " --follow 2>/dev/null").c_str())), 2);  // nothing listens
}
