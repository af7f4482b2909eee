// One worker process per container user for the walks over the user's app
// processes (a CE mount gives them the new view, a CE teardown takes it
// away). Whole walks take long, so they run beside the daemon.
#pragma once

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include "manager/Pelk.h"

namespace pelk {

// Forks a worker that runs work() and exits 0, once the user has no worker
// left (waitForThreadAvailable's wait), and records it in remountChildList
// without waiting for it. When the user's earlier worker never goes, or the
// fork fails, no worker is started and the caller goes on without one.
template <typename Work>
void startUserWorker(int userId, Work work) {
    if (!Pelk::waitForThreadAvailable(userId)) return;
    // The reaper ends a worker with SIGTERM: whatever the daemon made of
    // that signal for itself must not run in its worker, not even in the
    // moment between the fork and the reset, so it is held back until then.
    sigset_t all;
    sigset_t old;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &old);
    pid_t pid = fork();
    if (pid == 0) {
        signal(SIGTERM, SIG_DFL);
        pthread_sigmask(SIG_SETMASK, &old, nullptr);
        work();
        _exit(0);
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    if (pid > 0) Pelk::addChildToList(userId, pid);
}

}  // namespace pelk
