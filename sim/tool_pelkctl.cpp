// pelkctl: the simulated device's stand-in for the platform's system_server.
//
//   pelkctl [--socket NAME] [--caller MODE] [WORD ...]
//   pelkctl [--socket NAME] [--caller MODE] --follow
//
// Sends one command line ("<seq> WORD ...") to the daemon's socket
// "/dev/socket/NAME" (default "pelk"; "ppm" for the private-mode store) and
// prints every reply line exactly as it arrives: "<code> <seq> <text>", the
// terminating NUL dropped, one per line. With no words it reads lines from
// standard input and sends them one by one, each after the previous answer.
// Words with blanks, quotes or backslashes are quoted for the wire.
//
// --follow sends nothing: it stays connected and prints every message the
// daemon sends on its own (the broadcasts, "610 <text>" for DLP audit lines)
// as it arrives, until SIGINT or SIGTERM (exit status 0) or until the daemon
// closes the connection (0, with a note on standard error). A note on
// standard error says when it is connected.
//
// The daemon serves "pelk" only to the real system_server: a process whose
// command line is "system_server", whose parent is "zygote" or "zygote64"
// running as root. pelkctl builds that honestly: it re-executes itself as
// "zygote64", which forks a child that re-executes itself as
// "system_server" and does the talking. MODE builds the other callers:
//   system_server     the default: passes the check
//   zygote            the parent is named "zygote" (passes too)
//   other-name        the talker is named "surfaceflinger"
//   full-path         the talker is named "/system/bin/system_server"
//   suffix            the talker is named "system_server2"
//   not-zygote        the parent is named "app_process64"
//   zygote-not-root   the zygote64 parent drops to uid 1000 after the fork
//   self              no disguise: pelkctl talks as itself
//
// Exit status: 0 when every answer was 200 (done) or 201 (still running), 1
// when one was not (281 refused or failed, 5xx), 2 on a usage or connection
// error.
//
// SIGINT and SIGTERM sent to pelkctl reach the talker too, so stopping
// pelkctl by its pid never leaves a talker behind.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "base/UniqueFd.h"

namespace {

const char kRoleEnv[] = "PELKCTL_ROLE";

struct CallerMode {
    const char* name;
    const char* parentName;
    const char* talkerName;
    bool parentDropsRoot;
};

const CallerMode kModes[] = {
    {"system_server", "zygote64", "system_server", false},
    {"zygote", "zygote", "system_server", false},
    {"other-name", "zygote64", "surfaceflinger", false},
    {"full-path", "zygote64", "/system/bin/system_server", false},
    {"suffix", "zygote64", "system_server2", false},
    {"not-zygote", "app_process64", "system_server", false},
    {"zygote-not-root", "zygote64", "system_server", true},
    {"self", nullptr, nullptr, false},
};

struct Options {
    std::string socketName = "pelk";
    const CallerMode* mode = &kModes[0];
    std::vector<std::string> words;
    bool follow = false;
};

int usage() {
    fprintf(stderr,
            "usage: pelkctl [--socket NAME] [--caller MODE] [WORD ...]\n"
            "       pelkctl [--socket NAME] [--caller MODE] --follow\n"
            "MODE: system_server (default), zygote, other-name, full-path, suffix,\n"
            "      not-zygote, zygote-not-root, self\n");
    return 2;
}

const CallerMode* findMode(const char* name) {
    for (const CallerMode& m : kModes) {
        if (strcmp(m.name, name) == 0) return &m;
    }
    return nullptr;
}

bool parseOptions(int argc, char** argv, Options* out) {
    int i = 1;
    for (; i < argc; ++i) {
        if (strcmp(argv[i], "--socket") == 0 && i + 1 < argc) {
            out->socketName = argv[++i];
        } else if (strcmp(argv[i], "--caller") == 0 && i + 1 < argc) {
            out->mode = findMode(argv[++i]);
            if (!out->mode) return false;
        } else if (strcmp(argv[i], "--follow") == 0) {
            out->follow = true;
        } else if (strcmp(argv[i], "--") == 0) {
            ++i;
            break;
        } else if (strncmp(argv[i], "--", 2) == 0) {
            return false;
        } else {
            break;
        }
    }
    for (; i < argc; ++i) out->words.push_back(argv[i]);
    if (out->follow && !out->words.empty()) return false;
    return out->socketName.find('/') == std::string::npos && !out->socketName.empty();
}

// ---- the disguise ----

// Re-executes this program with argv[0] replaced, keeping every option, so
// that /proc/<pid>/cmdline starts with exactly that name.
[[noreturn]] void reexecAs(const char* name, const char* role, char** argv) {
    setenv(kRoleEnv, role, 1);
    argv[0] = const_cast<char*>(name);
    execv("/proc/self/exe", argv);
    fprintf(stderr, "pelkctl: cannot re-execute as %s: %s\n", name, strerror(errno));
    _exit(2);
}

int exitStatusOf(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    return 2;
}

volatile sig_atomic_t gTalker = 0;

// Stays 0 in the talker between its fork and its exec, so the talker never
// signals its own process group.
void forwardToTalker(int sig) {
    if (gTalker > 0) kill(gTalker, sig);
}

void forwardStopSignals() {
    struct sigaction action {};
    action.sa_handler = forwardToTalker;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

// The zygote: forks the talker and waits for it, dropping root in between
// when the mode asks for a zygote that is not root.
int runZygote(const Options& opts, char** argv) {
    int gate[2];
    if (pipe2(gate, O_CLOEXEC) != 0) {
        perror("pelkctl: pipe");
        return 2;
    }
    pid_t talker = fork();
    if (talker < 0) {
        perror("pelkctl: fork");
        return 2;
    }
    if (talker == 0) {
        // Wait until the parent is what the mode says it is.
        close(gate[1]);
        char byte;
        while (read(gate[0], &byte, 1) < 0 && errno == EINTR) {}
        reexecAs(opts.mode->talkerName, "talker", argv);
    }
    close(gate[0]);
    gTalker = talker;
    forwardStopSignals();
    if (opts.mode->parentDropsRoot && setresuid(1000, 1000, 1000) != 0) {
        perror("pelkctl: setresuid 1000");
    }
    close(gate[1]);
    int status = 0;
    while (waitpid(talker, &status, 0) < 0) {
        if (errno != EINTR) return 2;
    }
    return exitStatusOf(status);
}

// ---- the talking ----

std::string quoteWord(const std::string& word) {
    if (!word.empty() && word.find_first_of(" \t\"\\") == std::string::npos) return word;
    std::string quoted = "\"";
    for (char ch : word) {
        if (ch == '"' || ch == '\\') quoted += '\\';
        quoted += ch;
    }
    return quoted + "\"";
}

class Connection {
public:
    explicit Connection(int fd) : mFd(fd) {}
    ~Connection() {
        if (mFd >= 0) close(mFd);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    bool ok() const { return mFd >= 0; }

    bool sendAll(const std::string& data) {
        size_t done = 0;
        while (done < data.size()) {
            ssize_t n = send(mFd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return false;
            done += static_cast<size_t>(n);
        }
        return true;
    }

    int fd() const { return mFd; }

    // The next NUL-terminated message, without its NUL; false at the end.
    bool nextMessage(std::string* out) {
        while (!takeMessage(out)) {
            if (!readMore()) return false;
        }
        return true;
    }

    // A complete message already read; false when none is.
    bool takeMessage(std::string* out) {
        size_t end = mPending.find('\0');
        if (end == std::string::npos) return false;
        *out = mPending.substr(0, end);
        mPending.erase(0, end + 1);
        return true;
    }

    // Reads what the daemon sent; false when it closed the connection.
    bool readMore() {
        char buf[4096];
        ssize_t n;
        do {
            n = read(mFd, buf, sizeof(buf));
        } while (n < 0 && errno == EINTR);
        if (n <= 0) return false;
        mPending.append(buf, static_cast<size_t>(n));
        return true;
    }

private:
    int mFd;
    std::string mPending;
};

int connectTo(const std::string& name) {
    std::string path = "/dev/socket/" + name;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof(addr.sun_path)) return -1;
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

// Sends one line and prints every message up to its answer; -1 when the
// daemon went away, else the answer's code.
int exchange(Connection* conn, int seq, const std::string& line) {
    std::string seqText = std::to_string(seq);
    if (!conn->sendAll(seqText + " " + line + "\n")) return -1;
    std::string msg;
    while (conn->nextMessage(&msg)) {
        printf("%s\n", msg.c_str());
        fflush(stdout);
        int code = atoi(msg.c_str());
        if (code >= 600) continue;  // a broadcast answers nothing
        size_t blank = msg.find(' ');
        std::string second =
            blank == std::string::npos ? "" : msg.substr(blank + 1, msg.find(' ', blank + 1) - blank - 1);
        if (second == seqText || second == "0") return code;
    }
    return -1;
}

// Prints every message as it arrives until a stop signal or the end of the
// connection. The stop signals are taken through a descriptor, so one that
// arrives between two reads is never lost.
int follow(Connection* conn, const std::string& socketName) {
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    pelk::UniqueFd signals;
    if (sigprocmask(SIG_BLOCK, &stops, nullptr) == 0) signals.reset(signalfd(-1, &stops, SFD_CLOEXEC));
    if (!signals.ok()) {
        perror("pelkctl: signalfd");
        return 2;
    }
    fprintf(stderr, "pelkctl: following /dev/socket/%s\n", socketName.c_str());
    std::string msg;
    for (;;) {
        while (conn->takeMessage(&msg)) {
            printf("%s\n", msg.c_str());
            fflush(stdout);
        }
        pollfd fds[] = {{conn->fd(), POLLIN, 0}, {signals.get(), POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            perror("pelkctl: poll");
            return 2;
        }
        if (fds[1].revents & POLLIN) return 0;
        if (fds[0].revents && !conn->readMore()) {
            fprintf(stderr, "pelkctl: the daemon closed the connection\n");
            return 0;
        }
    }
}

int talk(const Options& opts) {
    Connection conn(connectTo(opts.socketName));
    if (!conn.ok()) {
        fprintf(stderr, "pelkctl: cannot connect to /dev/socket/%s: %s\n", opts.socketName.c_str(), strerror(errno));
        return 2;
    }
    if (opts.follow) return follow(&conn, opts.socketName);
    std::vector<std::string> lines;
    if (!opts.words.empty()) {
        std::string line;
        for (const std::string& w : opts.words) line += (line.empty() ? "" : " ") + quoteWord(w);
        lines.push_back(line);
    }
    bool allDone = true;
    int seq = 0;
    auto sendLine = [&](const std::string& line) {
        int code = exchange(&conn, ++seq, line);
        if (code < 0) {
            fprintf(stderr, "pelkctl: the daemon closed the connection\n");
            return false;
        }
        if (code != 200 && code != 201) allDone = false;
        return true;
    };
    if (!lines.empty()) {
        if (!sendLine(lines[0])) return 2;
        return allDone ? 0 : 1;
    }
    char* buf = nullptr;
    size_t cap = 0;
    ssize_t len;
    int result = 0;
    while ((len = getline(&buf, &cap, stdin)) >= 0) {
        std::string line(buf, static_cast<size_t>(len));
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
        if (line.find_first_not_of(" \t") == std::string::npos) continue;
        if (!sendLine(line)) {
            result = 2;
            break;
        }
    }
    free(buf);
    if (result != 0) return result;
    return allDone ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    Options opts;
    if (!parseOptions(argc, argv, &opts)) return usage();

    const char* role = getenv(kRoleEnv);
    if (role && strcmp(role, "talker") == 0) {
        unsetenv(kRoleEnv);
        return talk(opts);
    }
    if (role && strcmp(role, "zygote") == 0) return runZygote(opts, argv);
    if (!opts.mode->parentName) return talk(opts);
    reexecAs(opts.mode->parentName, "zygote", argv);
}
