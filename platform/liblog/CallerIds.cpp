// The pid and tid stamped on every record. glibc no longer caches either,
// and a system call each for every record is a visible part of a log call,
// so both are kept here: the pid for the process, the tid per thread. A child
// of fork() starts with both forgotten (its one thread is the forking one);
// the handler is in place before anything is kept, so no fork can slip
// between keeping a number and being able to forget it.
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

#include "LogSinks.h"

namespace hostlog {
namespace {

std::atomic<pid_t> sPid{0};
thread_local pid_t tTid = 0;

void forgetInChild() {
    sPid.store(0, std::memory_order_relaxed);
    tTid = 0;
}

void followForks() {
    static std::once_flag once;
    std::call_once(once, [] { pthread_atfork(nullptr, nullptr, forgetInChild); });
}

}  // namespace

pid_t callerPid() {
    pid_t pid = sPid.load(std::memory_order_relaxed);
    if (pid == 0) {
        followForks();
        pid = getpid();
        sPid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

pid_t callerTid() {
    if (tTid == 0) {
        followForks();
        tTid = static_cast<pid_t>(syscall(SYS_gettid));
    }
    return tTid;
}

}  // namespace hostlog
