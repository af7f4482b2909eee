#include "BusyKernel.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <signal.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/DirEntry.h"
#include "base/FileIo.h"
#include "base/UniqueFd.h"
#include "base/UniqueHandle.h"

namespace sim {
namespace {

// Installs the filter in the calling process; answers the listener or -1.
int interceptUmount() {
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_umount2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program = {static_cast<unsigned short>(sizeof(code) / sizeof(code[0])), code};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return -1;
    return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

// The path a stopped umount2 call names, read from the caller's memory.
std::string umountTarget(const seccomp_notif& request) {
    char path[4096] = {0};
    std::string mem = "/proc/" + std::to_string(request.pid) + "/mem";
    pelk::UniqueFd fd(open(mem.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.ok() || pread(fd.get(), path, sizeof(path) - 1, static_cast<off_t>(request.data.args[0])) <= 0) return "";
    return path;
}

int exitStatus(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status); }

}  // namespace

int runWithBusyKernel(const std::function<int()>& work, const std::function<bool(const std::string&)>& busy,
                      const std::function<void(pid_t)>& started) {
    // One end each: the child sends its listener's number and waits for the go-ahead, so it cannot run (or exit)
    // before the parent holds a copy of the listener; a child gone before the copy could never be answered.
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return -1;
    pelk::UniqueFd parentEnd(ends[0]);
    pelk::UniqueFd childEnd(ends[1]);
    pid_t child = fork();
    if (child == 0) {
        parentEnd.reset();
        int listener = interceptUmount();
        char go = 0;
        if (!pelk::writeFully(childEnd.get(), &listener, sizeof(listener)) || listener < 0 ||
            pelk::readFully(childEnd.get(), &go, 1) != 1)
            _exit(255);
        childEnd.reset();
        _exit(work() & 0xff);
    }
    childEnd.reset();
    int childListener = -1;
    if (child < 0) return -1;
    pelk::UniqueFd listener;
    if (pelk::readFully(parentEnd.get(), &childListener, sizeof(childListener)) == sizeof(childListener) &&
        childListener >= 0) {
        pelk::UniqueFd pidfd(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
        if (pidfd.ok()) listener.reset(static_cast<int>(syscall(SYS_pidfd_getfd, pidfd.get(), childListener, 0)));
    }
    const char go = 1;
    if (!listener.ok() || !pelk::writeFully(parentEnd.get(), &go, 1)) {
        // Nobody could answer the child's calls: it would wait forever.
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        return -1;
    }
    parentEnd.reset();
    if (started) started(child);
    for (;;) {
        int status = 0;
        pid_t done = waitpid(child, &status, WNOHANG);
        if (done == child) return exitStatus(status);
        if (done < 0 && errno != EINTR) return -1;
        pollfd p = {listener.get(), POLLIN, 0};
        if (poll(&p, 1, 20) <= 0 || !(p.revents & POLLIN)) continue;
        seccomp_notif request = {};
        if (ioctl(listener.get(), SECCOMP_IOCTL_NOTIF_RECV, &request) != 0) continue;
        seccomp_notif_resp reply = {};
        reply.id = request.id;
        if (busy(umountTarget(request))) {
            reply.error = -EBUSY;
        } else {
            reply.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
        }
        ioctl(listener.get(), SECCOMP_IOCTL_NOTIF_SEND, &reply);
    }
}

int runWithBusyKernel(const std::function<int()>& work, const std::function<bool()>& busy) {
    return runWithBusyKernel(work, [&busy](const std::string&) { return busy(); });
}

bool heldUnder(const std::string& path) {
    pelk::UniqueDir proc(opendir("/proc"));
    if (!proc) return false;
    const std::string prefix = path + "/";
    while (dirent* process = readdir(proc.get())) {
        if (atoi(process->d_name) <= 0) continue;
        std::string fdDir = std::string("/proc/") + process->d_name + "/fd";
        pelk::UniqueDir fds(opendir(fdDir.c_str()));
        if (!fds) continue;
        while (dirent* fd = readdir(fds.get())) {
            if (pelk::isDotOrDotDot(fd->d_name)) continue;
            char target[4096];
            ssize_t n = readlink((fdDir + "/" + fd->d_name).c_str(), target, sizeof(target) - 1);
            if (n <= 0) continue;
            target[n] = '\0';
            if (path == target || strncmp(target, prefix.c_str(), prefix.size()) == 0) return true;
        }
    }
    return false;
}

}  // namespace sim
