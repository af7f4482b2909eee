// The remount and unmount workers: at most one per container user, recorded
// in remountChildList and reaped by the reaper thread. The lock guards the
// map only; it is never held across a sleep or a blocking wait.
#define LOG_TAG "pelkd"

#include <log/log.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "log/PelkLog.h"
#include "manager/Pelk.h"

namespace {

const int kWaitPolls = 30;
const unsigned int kReapPeriodSeconds = 5;

bool hasWorker(int userId) {
    std::lock_guard<std::mutex> guard(Pelk::remountChildListLock);
    return Pelk::remountChildList.count(userId) != 0;
}

// Erases the user's entry if it still names this worker.
void forget(const std::pair<int, int>& worker) {
    std::lock_guard<std::mutex> guard(Pelk::remountChildListLock);
    auto it = Pelk::remountChildList.find(worker.first);
    if (it != Pelk::remountChildList.end() && it->second == worker.second) Pelk::remountChildList.erase(it);
}

}  // namespace

void Pelk::addChildToList(int userId, int pid) {
    std::lock_guard<std::mutex> guard(remountChildListLock);
    remountChildList.emplace(userId, pid);  // an existing entry keeps its pid
}

bool Pelk::waitForThreadAvailable(int userId) {
    if (!hasWorker(userId)) return true;
    for (int i = 0; i < kWaitPolls; ++i) {
        sleep(1);
        if (!hasWorker(userId)) return true;
    }
    // The text goes through "%s" with its "%d" unfilled: the running log's
    // readers match this exact line.
    const char* text = "Failed to ready for starting thread for User %d";
    ALOGE("%s", text);
    PelkLog::writeRunningLog(1, "%s", text);
    return false;
}

void Pelk::clearChildList() {
    std::vector<std::pair<int, int>> workers;
    {
        std::lock_guard<std::mutex> guard(remountChildListLock);
        workers.assign(remountChildList.begin(), remountChildList.end());
    }
    for (const auto& worker : workers) {
        // A worker that was never forked is recorded as -1; waiting for or
        // signalling "-1" would mean every child, or every process.
        if (worker.second <= 0) {
            forget(worker);
            continue;
        }
        int status = 0;
        pid_t reaped = TEMP_FAILURE_RETRY(waitpid(worker.second, &status, WNOHANG));
        // A worker ended by a signal keeps its entry, as the platform expects.
        if (reaped == worker.second && (status & 0x7f) != 0) continue;
        // One still running is told to end now and waited for. A worker
        // already reaped, or no longer our child, is never signalled: its
        // pid may belong to another process by now.
        if (reaped == 0) {
            kill(worker.second, SIGTERM);
            TEMP_FAILURE_RETRY(waitpid(worker.second, &status, 0));
        }
        forget(worker);
    }
}

void* Pelk::runClearChildThreadInternal(void*) {
    for (;;) {
        clearChildList();
        sleep(kReapPeriodSeconds);
    }
    return nullptr;
}
