#include "SystemServerCaller.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "base/FileIo.h"

namespace fuzzcaller {
namespace {

// This process's argument area, which /proc/<pid>/cmdline shows: a forked
// child has it at the same addresses and may write its new name over it.
struct ArgArea {
    char* start = nullptr;
    size_t size = 0;
};

ArgArea argArea() {
    std::string stat;
    pelk::UniqueFd fd(open("/proc/self/stat", O_RDONLY | O_CLOEXEC));
    if (!fd.ok() || !pelk::readAll(fd.get(), &stat)) return {};
    // Fields 48 and 49 (arg_start, arg_end), counted past the command name,
    // whose parentheses may hold anything.
    size_t at = stat.rfind(')');
    if (at == std::string::npos) return {};
    // Field 3 is the state letter; every later one is a number.
    const char* p = strchr(stat.c_str() + at + 2, ' ');
    if (!p) return {};
    unsigned long long start = 0, end = 0;
    for (int field = 4; field <= 49 && *p; ++field) {
        char* next = nullptr;
        unsigned long long value = strtoull(p, &next, 10);
        if (field == 48) start = value;
        if (field == 49) end = value;
        p = next;
    }
    if (start == 0 || end <= start) return {};
    return {reinterpret_cast<char*>(start), static_cast<size_t>(end - start)};
}

// In a forked child: only calls that are safe there. The whole area is
// cleared so its last byte is a NUL and the kernel shows exactly the name.
void takeName(const ArgArea& area, const char* name) {
    memset(area.start, 0, area.size);
    memcpy(area.start, name, strlen(name));
    prctl(PR_SET_NAME, name);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

// The system_server's part: a socket pair handed to the target.
[[noreturn]] void serveAsSystemServer(const ArgArea& area, int channel) {
    takeName(area, "system_server");
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) _exit(1);
    char byte = 0;
    iovec iov{&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(pair))];
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof(control);
    cmsghdr* cmsg = CMSG_FIRSTHDR(&msg);
    cmsg->cmsg_level = SOL_SOCKET;
    cmsg->cmsg_type = SCM_RIGHTS;
    cmsg->cmsg_len = CMSG_LEN(sizeof(pair));
    memcpy(CMSG_DATA(cmsg), pair, sizeof(pair));
    if (sendmsg(channel, &msg, MSG_NOSIGNAL) != 1) _exit(1);
    for (;;) pause();
}

bool receivePair(int channel, int pair[2]) {
    char byte;
    iovec iov{&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * 2)];
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof(control);
    if (recvmsg(channel, &msg, MSG_CMSG_CLOEXEC) != 1) return false;
    cmsghdr* cmsg = CMSG_FIRSTHDR(&msg);
    if (!cmsg || cmsg->cmsg_type != SCM_RIGHTS || cmsg->cmsg_len != CMSG_LEN(sizeof(int) * 2)) return false;
    memcpy(pair, CMSG_DATA(cmsg), sizeof(int) * 2);
    return true;
}

}  // namespace

bool SystemServerCaller::start() {
    stop();
    ArgArea area = argArea();
    if (area.size <= strlen("system_server")) {
        fprintf(stderr, "fuzz caller: the argument area is too small for a new name\n");
        return false;
    }
    int channel[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, channel) != 0) return false;
    pelk::UniqueFd ours(channel[0]), theirs(channel[1]);
    mZygote = fork();
    if (mZygote < 0) return false;
    if (mZygote == 0) {
        takeName(area, "zygote64");
        pid_t server = fork();
        if (server == 0) serveAsSystemServer(area, theirs.get());
        // Only the system_server keeps the channel: should it fail (or never
        // start), the parent's receive ends instead of waiting for good.
        theirs.reset();
        if (server < 0) _exit(1);
        for (;;) pause();
    }
    theirs.reset();
    int pair[2];
    if (!receivePair(ours.get(), pair)) {
        stop();
        return false;
    }
    mListenerEnd.reset(pair[0]);
    mCallerEnd.reset(pair[1]);
    return true;
}

void SystemServerCaller::stop() {
    mListenerEnd.reset();
    mCallerEnd.reset();
    if (mZygote > 0) {
        kill(mZygote, SIGKILL);
        waitpid(mZygote, nullptr, 0);
    }
    mZygote = -1;
}

}  // namespace fuzzcaller
