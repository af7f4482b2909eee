// The daemon in a process of its own and system_server's stand-in, as they
// run on the device: pelkd serves /dev/socket/pelk and /dev/socket/ppm, and
// each exchange is one run of pelkctl, whose output is what a caller sees.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Sandbox.h"
#include "base/UniqueFd.h"
#include "devprofile/DeviceProfile.h"
#include "tools/Base64.h"

namespace e2e {

struct CtlResult {
    int status = -1;                 // pelkctl's exit status
    std::vector<std::string> lines;  // its standard output, line by line
};

// A blocking connection to the Unix socket at path; not ok() when refused.
inline pelk::UniqueFd connectUnix(const char* path) {
    pelk::UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path);
    if (connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) fd.reset();
    return fd;
}

inline bool canConnect(const char* path) { return connectUnix(path).ok(); }

// Starts pelkd and waits until both of its sockets accept connections.
// With maxFds, the daemon may hold no more descriptors than that, as on a
// device (1,024 there).
inline pid_t startDaemon(rlim_t maxFds = 0) {
    pid_t pid = fork();
    if (pid == 0) {
        if (maxFds != 0) {
            struct rlimit lim = {maxFds, maxFds};
            if (setrlimit(RLIMIT_NOFILE, &lim) != 0) _exit(126);
        }
        std::string path = sim::toolPath("pelkd");
        execl(path.c_str(), "pelkd", static_cast<char*>(nullptr));
        _exit(127);
    }
    for (int i = 0; i < 1000; ++i) {
        if (canConnect("/dev/socket/pelk") && canConnect("/dev/socket/ppm")) return pid;
        int status;
        if (waitpid(pid, &status, WNOHANG) == pid) return -1;
        usleep(10000);
    }
    return -1;
}

// Stops pelkd as init does (SIGTERM) and answers its exit status. A daemon
// still there after 30 s is a failure, not a wait for ever: it is killed, so
// the test fails and the binary goes on (a stop handler that never runs hung
// the whole suite under a thread sanitizer once).
inline int stopDaemon(pid_t pid) {
    if (pid <= 0) return -1;
    kill(pid, SIGTERM);
    int status = 0;
    // By the clock: a sleep may end early, when a signal comes.
    const time_t deadline = time(nullptr) + 30;
    while (time(nullptr) < deadline) {
        pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        if (done < 0) return -1;
        usleep(10000);
    }
    ADD_FAILURE() << "pelkd did not stop within 30 s of SIGTERM";
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return 128 + SIGKILL;
}

// Becomes pelkctl with args (in a forked child); exits 127 when it cannot.
[[noreturn]] inline void execPelkctl(const std::vector<std::string>& args) {
    std::string path = sim::toolPath("pelkctl");
    std::vector<char*> argv{const_cast<char*>("pelkctl")};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(path.c_str(), argv.data());
    _exit(127);
}

// Runs pelkctl with these arguments, feeding it input on standard input.
inline CtlResult pelkctl(const std::vector<std::string>& args, const std::string& input = "") {
    CtlResult result;
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return result;
    pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        execPelkctl(args);
    }
    close(in[0]);
    close(out[1]);
    pelk::UniqueFd toChild(in[1]);
    pelk::UniqueFd fromChild(out[0]);
    if (!input.empty() && write(toChild.get(), input.data(), input.size()) < 0) ADD_FAILURE() << "write";
    toChild.reset();
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = read(fromChild.get(), buf, sizeof(buf))) > 0) text.append(buf, static_cast<size_t>(n));
    int status = 0;
    waitpid(pid, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        result.lines.push_back(text.substr(start, end - start));
    }
    return result;
}

inline bool isDaemonRecord(const LogRecord& r) { return r.tag == "pelkd" && r.buffer == LOG_ID_SYSTEM; }

// Records of the daemon's own lines (tag "pelkd", system buffer).
inline std::vector<LogRecord> daemonRecords() {
    std::vector<LogRecord> out;
    for (const LogRecord& r : liblog_records()) {
        if (isDaemonRecord(r)) out.push_back(r);
    }
    return out;
}

// How many there are, without copying them.
inline int daemonRecordCount() {
    int n = 0;
    for (const LogRecord& r : liblog_records()) n += isDaemonRecord(r) ? 1 : 0;
    return n;
}

// The pids quoted by every record that matches a "...%d..." format exactly.
inline std::vector<int> pidsLogged(const char* format, int priority) {
    std::vector<int> pids;
    for (const LogRecord& r : daemonRecords()) {
        int pid = -1;
        if (r.priority != priority || sscanf(r.text.c_str(), format, &pid) != 1) continue;
        char expected[256];
        snprintf(expected, sizeof(expected), format, pid);
        if (r.text == expected) pids.push_back(pid);
    }
    return pids;
}

inline int commandLinesLogged() {
    int count = 0;
    for (const LogRecord& r : daemonRecords()) {
        if (r.text.rfind("\n\nCMD > ", 0) == 0) ++count;
    }
    return count;
}

// A "mount" line's key text: raw as the platform's base64 encoder writes it.
inline std::string keyText(const std::string& raw) {
    std::string in = raw;
    in.push_back('\0');  // the encoder reads one byte past the data
    std::string out(((raw.size() + 2) / 3) * 4 + 1, '\0');
    base64e(reinterpret_cast<const unsigned char*>(in.data()), &out[0], static_cast<int>(raw.size()));
    out.resize(strlen(out.c_str()));
    return out;
}

// A device where "mount" really mounts a legacy container 10 with its key:
// no file-based encryption, on-device encryption running, sleeps 1000x faster.
inline void prepareLegacyContainerDevice() {
    devprofile::set("fbe", "0");
    devprofile::set("ode", "1");
    devprofile::set("user.10", "zanth,legacy");
    devprofile::set("time.scale", "0.001");
}

// A device with pelkd running for the whole test.
class DaemonTest : public testing::Test {
protected:
    void SetUp() override {
        prepareDevice();
        mDaemon = startDaemon(descriptorLimit());
        ASSERT_GT(mDaemon, 0) << "pelkd did not come up";
    }
    void TearDown() override { EXPECT_EQ(0, stopDaemon(mDaemon)); }
    // Profile settings the daemon must see from its start.
    virtual void prepareDevice() {}
    // The daemon's descriptor limit; 0 leaves the test's own.
    virtual rlim_t descriptorLimit() const { return 0; }

    pid_t mDaemon = -1;
};

}  // namespace e2e
