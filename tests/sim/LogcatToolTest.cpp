#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "base/Secret.h"
#include "base/UniqueFd.h"

namespace {

using Clock = std::chrono::steady_clock;

// What logcat prints for every record so far.
std::string deviceLog() {
    std::string text;
    for (const LogRecord& r : liblog_records()) text += liblog_threadtime(r);
    return text;
}

// Runs a shell command on the device; answers its output and exit status.
std::string run(const std::string& command, int* status) {
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return "<popen failed>";
    std::string out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), pipe)) > 0) out.append(buf, n);
    int raw = pclose(pipe);
    *status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return out;
}

// A "logcat -v threadtime" streaming into a pipe, killed when done.
class StreamingLogcat {
public:
    StreamingLogcat() {
        int fds[2];
        if (pipe(fds) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            dup2(fds[1], STDOUT_FILENO);
            close(fds[0]);
            close(fds[1]);
            execlp("logcat", "logcat", "-v", "threadtime", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(fds[1]);
        out_.reset(fds[0]);
    }
    ~StreamingLogcat() {
        if (pid_ > 0 && !exited_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }

    // Reads until text has appeared in the output or two seconds passed.
    std::string readUntil(const std::string& text) {
        auto deadline = Clock::now() + std::chrono::seconds(2);
        while (seen_.find(text) == std::string::npos && Clock::now() < deadline) {
            pollfd p{out_.get(), POLLIN, 0};
            if (poll(&p, 1, 50) <= 0) continue;
            char buf[4096];
            ssize_t n = read(out_.get(), buf, sizeof(buf));
            if (n <= 0) break;
            seen_.append(buf, static_cast<size_t>(n));
        }
        return seen_;
    }

    void closeOutput() { out_.reset(); }

    // True when logcat ended by itself within two seconds.
    bool endsByItself() {
        auto deadline = Clock::now() + std::chrono::seconds(2);
        while (Clock::now() < deadline) {
            if (waitpid(pid_, nullptr, WNOHANG) == pid_) return exited_ = true;
            poll(nullptr, 0, 20);
        }
        return false;
    }

private:
    pid_t pid_ = -1;
    bool exited_ = false;
    pelk::UniqueFd out_;
    std::string seen_;
};

}  // namespace

TEST(Logcat, DumpPrintsTheDeviceLogAndAppliesFilters) {
    int status = -1;
    EXPECT_EQ(run("logcat -v threadtime -d", &status), "");
    EXPECT_EQ(status, 0);

    __android_log_buf_print(LOG_ID_SYSTEM, ANDROID_LOG_DEBUG, "pelkd", "\n\nCMD > %s \n", "mount 150");
    __android_log_print(ANDROID_LOG_VERBOSE, "pelkd", "chatty");
    __android_log_print(ANDROID_LOG_INFO, "pelklogd", "getlogcat START");
    std::string all = deviceLog();
    ASSERT_FALSE(all.empty());
    EXPECT_EQ(run("logcat -v threadtime -b main -b system -d", &status), all);
    EXPECT_EQ(status, 0);

    std::string onlyPelkd = run("logcat -d pelkd:d '*:s'", &status);
    EXPECT_EQ(status, 0);
    EXPECT_NE(onlyPelkd.find(": CMD > mount 150 \n"), std::string::npos) << onlyPelkd;
    EXPECT_EQ(onlyPelkd.find("chatty"), std::string::npos);
    EXPECT_EQ(onlyPelkd.find("getlogcat"), std::string::npos);
    EXPECT_EQ(run("logcat -d -s pelklogd", &status).find("pelkd "), std::string::npos);

    run("logcat -d 'pelkd:q' 2>/dev/null", &status);
    EXPECT_EQ(status, 1);
    run("logcat -v brief -d 2>/dev/null", &status);
    EXPECT_EQ(status, 1);

    EXPECT_EQ(run("logcat -c", &status), "");
    EXPECT_EQ(run("logcat -d", &status), "");
}

TEST(Logcat, StreamsNewLinesAcrossARecreatedLog) {
    __android_log_print(ANDROID_LOG_INFO, "pelkd", "old line");
    StreamingLogcat logcat;
    EXPECT_NE(logcat.readUntil("old line").find("I pelkd   : old line\n"), std::string::npos);

    __android_log_buf_print(LOG_ID_SYSTEM, ANDROID_LOG_ERROR, "pelkd", "first\nsecond");
    std::string seen = logcat.readUntil(": second\n");
    EXPECT_NE(seen.find("E pelkd   : first\n"), std::string::npos) << seen;
    EXPECT_NE(seen.find("E pelkd   : second\n"), std::string::npos) << seen;

    // The device is wiped under the running logcat; the new log is followed.
    ASSERT_EQ(unlink("/sim/log/records"), 0);
    poll(nullptr, 0, 120);
    __android_log_print(ANDROID_LOG_WARN, "pelkd", "after the wipe");
    EXPECT_NE(logcat.readUntil("after the wipe").find("W pelkd   : after the wipe\n"), std::string::npos);
}

TEST(Logcat, EndsWhenItsReaderGoesAway) {
    StreamingLogcat logcat;
    __android_log_print(ANDROID_LOG_INFO, "pelkd", "someone reads");
    ASSERT_NE(logcat.readUntil("someone reads").find("someone reads"), std::string::npos);
    logcat.closeOutput();
    EXPECT_TRUE(logcat.endsByItself());
}
