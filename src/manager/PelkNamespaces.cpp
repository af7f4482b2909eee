// Giving the processes of a user the container's emulated storage, or taking
// it away, inside their own mount namespaces. Each walk visits /proc once
// per pass; every chosen process costs one short child that enters its
// namespace (NamespaceChild), and the walk waits for it before the next.
//
// What the child needs to know (is the path already mounted there, which
// view does the process see) is read here, from the process's own tables in
// /proc, before the fork: the child then only enters the namespace and makes
// the one mount call, which is all a child of a threaded daemon may safely do.
#define LOG_TAG "pelkd"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

#include <utility>

#include <log/log.h>
#include <persona/persona.h>
#include <private/android_filesystem_config.h>

#include "manager/MountCalls.h"
#include "manager/NamespaceChild.h"
#include "manager/Pelk.h"
#include "process/ProcFs.h"
#include "process/UserProcesses.h"

namespace {

constexpr size_t kPathSize = 4096;
constexpr int kMaxContainers = 32;
constexpr int kDetachPasses = 10;
constexpr useconds_t kPassPauseUs = 200 * 1000;

// The emulated-storage source of each mount mode (1 default, 2 read, 3 write).
const char* const kViewSources[] = {
    nullptr,
    "/mnt/zanth/default/emulated/%d",
    "/mnt/zanth/read/emulated/%d",
    "/mnt/zanth/write/emulated/%d",
};

void logFailedOpendir() { ALOGE("Failed to opendir"); }

// True when path is a mount point in the process's own namespace, read from
// its table in /proc (what the closed isMountedPath answers from inside).
bool mountedInProcess(const pelk::ProcessEntry& process, const char* path) {
    pelk::UniqueFd fd(openat(process.dirFd, "mounts", O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) return false;
    pelk::UniqueFile table(pelk::Fdopen(std::move(fd), "re"));
    return table && pelk::mountTableHas(table.get(), path);
}

}  // namespace

void Pelk::remountProcesses(int target, int userId) {
    pelk::ProcessWalk walk;
    if (!walk.ok()) {
        logFailedOpendir();
        return;
    }
    char daemonNs[kPathSize] = {0};
    char processNs[kPathSize] = {0};
    char link[64];
    snprintf(link, sizeof(link), "/proc/%d/ns/mnt", mPid);
    if (readlink(link, daemonNs, sizeof(daemonNs) - 1) < 0) return;

    ALOGD("Searching processes related to target: %d", target);
    char storage[kPathSize];
    snprintf(storage, sizeof(storage), "/storage/emulated/%d", userId);
    pelk::NamespaceChild child;
    walk.forEach([&](const pelk::ProcessEntry& process) {
        if (process.pid == mPid) return;
        if (target == 0) {
            if (process.uid == AID_SHELL || process.uid >= AID_USER_OFFSET) return;
        } else if (pelk::androidUserOf(process.uid) != target) {
            return;
        }
        // Processes that share the daemon's namespace already see its mounts.
        if (!pelk::readMountNamespaceLink(process, processNs, sizeof(processNs))) return;
        if (strcmp(processNs, daemonNs) == 0) return;

        if (isMountedInternal(process.name, storage) == 1) return;
        int mode = getMountMode(process.name);
        if (mode < 1 || mode > 3) return;
        char source[kPathSize];
        snprintf(source, sizeof(source), kViewSources[mode], userId);

        pelk::UniqueFd ns = pelk::openMountNamespace(process);
        if (!ns.ok()) return;  // the process is gone: nothing to give it
        pelk::NamespaceOutcome outcome = child.bind(ns.get(), source, storage);
        if (outcome.step == pelk::NamespaceOutcome::kForkFailed) {
            ALOGE("Failed to fork");
        } else if (outcome.step == pelk::NamespaceOutcome::kWorkDone && outcome.error != 0) {
            ALOGE("Failed to mount external: %s", strerror(outcome.error));
        }
    });
}

void Pelk::unmountProcesses(int userId, const char* path) {
    ALOGD("Unmount %s related to target user[%d]", path, userId);
    pelk::ProcessWalk walk;
    if (!walk.ok()) {
        logFailedOpendir();
        return;
    }
    pelk::NamespaceChild child;
    walk.forEach(
        [&](const pelk::ProcessEntry& process) {
            if (pelk::androidUserOf(process.uid) != userId) return;
            pelk::UniqueFd ns = pelk::openMountNamespace(process);
            if (!ns.ok()) return;
            if (!mountedInProcess(process, path)) return;
            ALOGD("Found matching PID %s", process.name);
            pelk::NamespaceOutcome outcome = child.detach(ns.get(), path);
            if (outcome.step == pelk::NamespaceOutcome::kForkFailed) {
                ALOGE("Failed to fork");
            } else if (outcome.step == pelk::NamespaceOutcome::kWorkDone) {
                if (outcome.error == 0 || outcome.error == EINVAL) {
                    ALOGD("Kick out %s: ", path);
                } else {
                    ALOGW("Failed to unmount %s: %s", path, strerror(outcome.error));
                }
            }
        },
        [](const char* name) { ALOGE("Failed to stat: %s", name); });
}

int Pelk::unmountPrivateZanthProcesses(const char* path) {
    int users[kMaxContainers] = {0};
    int count = scanZanthPersonas(users, kMaxContainers);
    if (count < 1) return count;
    if (count > kMaxContainers) count = kMaxContainers;

    int rc = pelk::detachMount(path, MNT_DETACH);
    if (rc != 0 && rc != -EINVAL && rc != -ENOENT) {
        SLOGE("Detaching failed for drive %s err(%d %s)\n", path, -rc, strerror(-rc));
    } else {
        SLOGI("Drive %s detaching successfully\n", path);
    }

    auto isContainerProcess = [&](uid_t uid) {
        int user = pelk::androidUserOf(uid);
        for (int i = 0; i < count; ++i) {
            if (users[i] == user) return true;
        }
        return false;
    };
    pelk::NamespaceChild child;
    for (int pass = 0; pass < kDetachPasses; ++pass) {
        pelk::ProcessWalk walk;
        if (!walk.ok()) {
            logFailedOpendir();
            return -1;
        }
        walk.forEach(
            [&](const pelk::ProcessEntry& process) {
                if (!isContainerProcess(process.uid)) return;
                pelk::UniqueFd ns = pelk::openMountNamespace(process);
                if (!ns.ok()) {
                    ALOGE("Failed to open namespace for %s", process.name);
                    return;
                }
                if (!mountedInProcess(process, path)) return;
                ALOGD("Found matching PID %s", process.name);
                pelk::NamespaceOutcome outcome = child.detach(ns.get(), path);
                if (outcome.step == pelk::NamespaceOutcome::kForkFailed) {
                    ALOGE("Failed to fork");
                } else if (outcome.step == pelk::NamespaceOutcome::kSetnsFailed) {
                    ALOGE("Failed to setns for %s", process.name);
                } else if (outcome.error == 0 || outcome.error == EINVAL) {
                    SLOGI("Drive %s unmounted successfully for %d\n", path, static_cast<int>(process.uid));
                } else {
                    SLOGE("Unmount failed for drive %s err(%d %s)\n", path, outcome.error, strerror(outcome.error));
                }
            },
            [](const char* name) { ALOGE("Failed to stat: %s", name); });
        usleep(kPassPauseUs);
    }
    return 0;
}
