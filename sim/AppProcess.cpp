#include "AppProcess.h"

#include <fcntl.h>
#include <grp.h>
#include <private/android_filesystem_config.h>
#include <sched.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "base/UniqueFd.h"

namespace sim {
namespace {

// Everything the child needs, built before the fork: after it, the child of
// a threaded starter makes system calls only.
struct Prepared {
    explicit Prepared(const AppOptions& o)
        : ownNamespace(o.ownMountNamespace),
          source(o.ownMountNamespace ? storageSource(o.view) : nullptr),
          uid(appUid(o.userId, o.appId)),
          groups(o.groups),
          args(o.command) {
        if (!args.empty()) {
            program = args[0];
            if (!o.name.empty()) args[0] = o.name;
        }
        for (std::string& a : args) argv.push_back(&a[0]);
        argv.push_back(nullptr);
    }
    bool ownNamespace;
    const char* source;
    uid_t uid;
    std::vector<gid_t> groups;
    std::string program;
    std::vector<std::string> args;
    std::vector<char*> argv;
};

// What the child reports before it parks or when it fails; a successful
// exec reports nothing (the close-on-exec pipe just closes).
struct Report {
    char tag;  // 'P' parked, 'E' failed
    int err;
    char step[48];
};

// Answers the step that failed, or nullptr.
const char* setUp(const Prepared& p) {
    if (p.ownNamespace) {
        if (unshare(CLONE_NEWNS) != 0) return "unshare";
        if (mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) != 0) return "making mounts slaves";
        if (p.source) {
            // The starter's emulated storage goes; the view brings its own.
            umount2("/storage/emulated", MNT_DETACH);
            if (mount(p.source, "/storage", nullptr, MS_BIND | MS_REC, nullptr) != 0) return "binding the view";
        }
    }
    if (setgroups(p.groups.size(), p.groups.data()) != 0) return "setgroups";
    if (setresgid(p.uid, p.uid, p.uid) != 0) return "setresgid";
    if (setresuid(p.uid, p.uid, p.uid) != 0) return "setresuid";
    if (chdir("/") != 0) return "chdir /";
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    return nullptr;
}

void writeReport(int fd, char tag, const char* step, int err) {
    Report r = {};
    r.tag = tag;
    r.err = err;
    if (step) strncpy(r.step, step, sizeof(r.step) - 1);
    // One write below PIPE_BUF: the starter reads it whole.
    if (write(fd, &r, sizeof(r)) < 0) _exit(127);
}

[[noreturn]] void runChild(const Prepared& p, int reportFd) {
    const char* failed = setUp(p);
    if (!failed && p.args.empty()) {
        writeReport(reportFd, 'P', nullptr, 0);
        for (;;) pause();
    }
    if (!failed) {
        execvp(p.program.c_str(), p.argv.data());
        failed = "exec";
    }
    writeReport(reportFd, 'E', failed, errno);
    _exit(127);
}

std::string describe(const char* step, int err) { return std::string(step) + ": " + strerror(err); }

void sleepMs(int ms) {
    timespec ts{ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&ts, nullptr);
}

}  // namespace

uid_t appUid(int userId, int appId) { return static_cast<uid_t>(userId * AID_USER_OFFSET + appId); }

const char* storageSource(StorageView view) {
    switch (view) {
        case StorageView::Default: return "/mnt/runtime/default";
        case StorageView::Read: return "/mnt/runtime/read";
        case StorageView::Write: return "/mnt/runtime/write";
        case StorageView::Full: return "/mnt/runtime/full";
        case StorageView::None: break;
    }
    return nullptr;
}

bool parseStorageView(const std::string& word, StorageView* view) {
    const std::pair<const char*, StorageView> words[] = {{"default", StorageView::Default},
                                                         {"read", StorageView::Read},
                                                         {"write", StorageView::Write},
                                                         {"full", StorageView::Full},
                                                         {"none", StorageView::None}};
    for (const auto& w : words) {
        if (word == w.first) {
            *view = w.second;
            return true;
        }
    }
    return false;
}

pid_t startApp(const AppOptions& options, std::string* error) {
    Prepared prepared(options);
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        if (error) *error = describe("pipe", errno);
        return -1;
    }
    pelk::UniqueFd readEnd(fds[0]);
    pelk::UniqueFd writeEnd(fds[1]);
    pid_t pid = fork();
    if (pid == 0) runChild(prepared, writeEnd.get());
    int forkErr = errno;
    writeEnd.reset();
    if (pid < 0) {
        if (error) *error = describe("fork", forkErr);
        return -1;
    }
    Report report = {};
    ssize_t n;
    while ((n = read(readEnd.get(), &report, sizeof(report))) < 0 && errno == EINTR) {}
    if (n == 0 || (n > 0 && report.tag == 'P')) return pid;
    if (error) *error = n == static_cast<ssize_t>(sizeof(report)) ? describe(report.step, report.err) : "lost";
    while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {}
    return -1;
}

void becomeApp(const AppOptions& options, std::string* error) {
    Prepared prepared(options);
    const char* failed = setUp(prepared);
    if (!failed && prepared.args.empty()) {
        errno = EINVAL;
        failed = "no command";
    }
    if (!failed) {
        execvp(prepared.program.c_str(), prepared.argv.data());
        failed = "exec";
    }
    if (error) *error = describe(failed, errno);
}

AppProcess::AppProcess(const AppOptions& options) : uid_(appUid(options.userId, options.appId)) {
    pid_ = startApp(options, &error_);
}

AppProcess::~AppProcess() {
    if (pid_ > 0 && !reaped_) stop(SIGKILL);
}

bool AppProcess::alive() const {
    if (pid_ <= 0 || reaped_) return false;
    std::ifstream stat("/proc/" + std::to_string(pid_) + "/stat");
    // The name is in parentheses and may hold blanks; the state follows it.
    std::string line;
    if (!std::getline(stat, line)) return false;
    size_t nameEnd = line.rfind(')');
    return nameEnd != std::string::npos && nameEnd + 2 < line.size() && line[nameEnd + 2] != 'Z';
}

int AppProcess::stop(int sig) {
    if (pid_ <= 0 || reaped_) return -1;
    kill(pid_, sig);
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    reaped_ = true;
    return status;
}

int AppProcess::wait(int timeoutMs) {
    if (pid_ <= 0 || reaped_) return -1;
    for (int waited = 0;; waited += 5) {
        int status = 0;
        pid_t done = waitpid(pid_, &status, WNOHANG);
        if (done == pid_) {
            reaped_ = true;
            return status;
        }
        if (done < 0 && errno != EINTR) return -1;
        if (waited >= timeoutMs) return -1;
        sleepMs(5);
    }
}

}  // namespace sim
