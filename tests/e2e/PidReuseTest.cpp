// A process number handed on to another process must not carry the caller
// check with it. The device has its own pid namespace, so the next number
// given out can be chosen (/proc/sys/kernel/ns_last_pid) and a number that
// system_server had, or will have, handed to someone else for real.
#include <poll.h>

#include <algorithm>
#include <fstream>

#include "Daemon.h"

namespace {

using e2e::pelkctl;
using e2e::pidsLogged;

const char kNotSystemServer[] = "Process(PID: %d) is not the system_server!!\n";
const char kIsSystemServer[] = "Process(PID: %d) is the system_server..\n";
const char kDenied[] = "failed Permission denied";

// The next fork of this namespace gets pid + 1 (if that number is free).
bool setLastPid(int pid) {
    std::ofstream out("/proc/sys/kernel/ns_last_pid");
    out << pid;
    out.flush();
    return out.good();
}

// A number well above any in use, where a small block of free ones starts.
int freshPidBase() {
    static int next = 20000;
    next += 100;
    return next;
}

int countOf(const std::vector<int>& pids, int pid) {
    return static_cast<int>(std::count(pids.begin(), pids.end(), pid));
}

// Sends one line and answers the reply without its NUL ("<none>" if none
// comes within 5 s).
std::string ask(int fd, const std::string& line) {
    if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) return "<send failed>";
    std::string reply;
    for (;;) {
        struct pollfd pfd = {fd, POLLIN, 0};
        if (poll(&pfd, 1, 5000) != 1) return "<none>";
        char ch;
        if (read(fd, &ch, 1) != 1) return "<eof>";
        if (ch == '\0') return reply;
        reply += ch;
    }
}

std::string cmdlineOf(int pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/cmdline");
    std::string text;
    std::getline(in, text, '\0');
    return text;
}

// An honest system_server (pelkctl reading lines from a pipe) that stays
// until its input is closed.
struct HeldSystemServer {
    pid_t pelkctl = -1;
    pelk::UniqueFd input;
    pelk::UniqueFd output;

    bool start() {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return false;
        pelkctl = fork();
        if (pelkctl == 0) {
            dup2(in[0], 0);
            dup2(out[1], 1);
            std::string path = sim::toolPath("pelkctl");
            execl(path.c_str(), "pelkctl", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        input.reset(in[1]);
        output.reset(out[0]);
        return pelkctl > 0;
    }
    // Its answer to one line, as pelkctl prints it.
    std::string ask(const std::string& line) {
        std::string text = line + "\n";
        if (write(input.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) return "<send failed>";
        std::string printed;
        char ch;
        while (read(output.get(), &ch, 1) == 1 && ch != '\n') printed += ch;
        return printed;
    }
    void stop() {
        input.reset();
        int status;
        if (pelkctl > 0) waitpid(pelkctl, &status, 0);
        pelkctl = -1;
    }
    ~HeldSystemServer() { stop(); }
};

// Runs an honest system_server with the next pid after base and answers the
// number its talker had, as the daemon logged it (-1 if it did not pass).
// The talker is not always base + 2 (pelkctl, re-executed as zygote64, then
// its child): a runtime that starts a helper thread in every forked child (a
// thread sanitizer does) uses up a number of the same namespace for it.
int honestTalkerAfter(int base) {
    if (!setLastPid(base)) return -1;
    const std::vector<int> before = pidsLogged(kIsSystemServer, ANDROID_LOG_DEBUG);
    auto honest = pelkctl({"is_mounted", "10"});
    if (honest.lines != std::vector<std::string>{"200 1 success"}) return -1;
    for (int pid : pidsLogged(kIsSystemServer, ANDROID_LOG_DEBUG)) {
        if (pid > base && countOf(before, pid) == 0) return pid;
    }
    return -1;
}

class PidReuse : public e2e::DaemonTest {};

TEST_F(PidReuse, ANumberSystemServerHadIsCheckedAfreshForItsNextOwner) {
    for (int attempt = 0; attempt < 5; ++attempt) {
        const int number = honestTalkerAfter(freshPidBase());
        ASSERT_GT(number, 0) << "the honest system_server did not pass";

        // system_server has exited; an impostor gets its number.
        const int linesBefore = e2e::commandLinesLogged();
        int result[2];
        ASSERT_EQ(pipe2(result, O_CLOEXEC), 0);
        pelk::UniqueFd resultRead(result[0]), resultWrite(result[1]);
        ASSERT_TRUE(setLastPid(number - 1));
        pid_t impostor = fork();
        ASSERT_GE(impostor, 0);
        if (impostor == 0) {
            pelk::UniqueFd fd = e2e::connectUnix("/dev/socket/pelk");
            std::string reply = getpid() == number ? ask(fd.get(), "1 is_mounted 10\n") : "<other pid>";
            if (write(resultWrite.get(), reply.data(), reply.size()) < 0) _exit(1);
            _exit(0);
        }
        resultWrite.reset();
        std::string reply;
        char buf[256];
        ssize_t n;
        while ((n = read(resultRead.get(), buf, sizeof(buf))) > 0) reply.append(buf, static_cast<size_t>(n));
        int status = 0;
        waitpid(impostor, &status, 0);
        if (impostor != number) continue;

        EXPECT_EQ(std::string("281 1 ") + kDenied, reply);
        EXPECT_EQ(1, countOf(pidsLogged(kNotSystemServer, ANDROID_LOG_ERROR), number));
        EXPECT_EQ(linesBefore, e2e::commandLinesLogged()) << "the impostor's command ran";
        return;
    }
    FAIL() << "the pids could not be placed";
}

TEST_F(PidReuse, AConnectionWhoseProcessExitedIsRefusedWhenSystemServerGetsItsNumber) {
    std::string why;
    for (int attempt = 0; attempt < 5; ++attempt) {
        // How far after the last pid an honest system_server's talker lands.
        const int firstBase = freshPidBase();
        const int talkerOffset = honestTalkerAfter(firstBase) - firstBase;
        ASSERT_GT(talkerOffset, 0) << "the honest system_server did not pass";
        // A process connects, leaves the connection to this one, and exits.
        const int base = freshPidBase();
        ASSERT_TRUE(setLastPid(base));
        pelk::UniqueFd handedOn(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        pid_t connector = fork();
        ASSERT_GE(connector, 0);
        if (connector == 0) {
            sockaddr_un addr{};
            addr.sun_family = AF_UNIX;
            snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", "/dev/socket/pelk");
            _exit(connect(handedOn.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0 ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(waitpid(connector, &status, 0), connector);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

        // The real system_server is then given that number.
        ASSERT_TRUE(setLastPid(connector - talkerOffset));
        HeldSystemServer real;
        ASSERT_TRUE(real.start());
        for (int i = 0; i < 500 && cmdlineOf(connector) != "system_server"; ++i) usleep(10000);
        if (cmdlineOf(connector) != "system_server") {
            why = "pid " + std::to_string(connector) + " is [" + cmdlineOf(connector) + "], talker offset " +
                  std::to_string(talkerOffset);
            continue;
        }

        // Before system_server has spoken, and after it has passed.
        const int linesBefore = e2e::commandLinesLogged();
        EXPECT_EQ(std::string("281 1 ") + kDenied, ask(handedOn.get(), "1 is_mounted 10\n"));
        EXPECT_EQ(linesBefore, e2e::commandLinesLogged()) << "the handed-on line ran";
        EXPECT_EQ("200 1 success", real.ask("is_mounted 10"));
        const int linesAfter = e2e::commandLinesLogged();
        EXPECT_EQ(std::string("281 2 ") + kDenied, ask(handedOn.get(), "2 is_mounted 10\n"));
        EXPECT_EQ(linesAfter, e2e::commandLinesLogged()) << "the handed-on line ran";
        EXPECT_EQ("200 2 success", real.ask("is_mounted 11"));

        // Only the real one was looked at in /proc.
        EXPECT_EQ(1, countOf(pidsLogged(kIsSystemServer, ANDROID_LOG_DEBUG), connector));
        return;
    }
    FAIL() << "the pids could not be placed: " << why;
}

}  // namespace
