// One worker process per container user for the walks over the user's app
// processes (a CE mount gives them the new view, a CE teardown takes it
// away). Whole walks take long, so they run beside the daemon.
#pragma once

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
    pid_t pid = fork();
    if (pid == 0) {
        work();
        _exit(0);
    }
    if (pid > 0) Pelk::addChildToList(userId, pid);
}

}  // namespace pelk
