// Taking an area down: its sdcard views first, then the area itself, each
// detached with up to seven tries and the process killer in between.
#define LOG_TAG "pelkd"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

#include <log/log.h>

#include "manager/MountCalls.h"
#include "manager/Pelk.h"
#include "manager/PrivateModePaths.h"
#include "partition/Partition.h"
#include "process/ProcessKiller.h"

namespace {

constexpr size_t kPathSize = 4096;
// Signal sent to the holders after each failed try: the first three only
// report them, then SIGHUP, SIGINT, and a last report. Mild on purpose.
constexpr int kSignalAfterTry[] = {0, 0, 0, 1, 2, 0};
constexpr int kTries = 7;
constexpr useconds_t kRetryPauseUs = 500 * 1000;

const char* const kEmulatedViewBases[] = {
    "/mnt/zanth/default/emulated",
    "/mnt/zanth/read/emulated",
    "/mnt/zanth/write/emulated",
};

}  // namespace

int Pelk::unmount(Partition* partition) {
    if (!partition) {
        SLOGE("given partition obj is NULL");
        return -1;
    }
    if (partition->mType == PARTITION_PRIVATE_MODE) {
        for (const char* view : pelk::kPrivateViews) {
            if (doUnmount(view) != 0) return -1;
        }
    } else if (partition->mType == PARTITION_CE_SDCARD) {
        for (const char* base : kEmulatedViewBases) {
            char view[kPathSize];
            snprintf(view, sizeof(view), "%s/%d", base, partition->mUserId);
            if (doUnmount(view) != 0) return -1;
        }
    }
    char path[kPathSize];
    snprintf(path, sizeof(path), "%s", partition->mMntPath);
    SLOGI("Unmounting <%s>", path);
    if (!partition->isMounted()) {
        SLOGD("%s is not mounted", path);
        return 0;
    }
    return doUnmount(path);
}

int Pelk::doUnmount(const char* path) {
    for (int tries = 1;; ++tries) {
        int rc = pelk::detachMount(path, MNT_DETACH | UMOUNT_NOFOLLOW);
        // Not a mount point, or no such path: there is nothing left to detach.
        if (rc == 0 || rc == -EINVAL || rc == -ENOENT) {
            SLOGI("%s sucessfully unmounted", path);
            return 0;
        }
        if (tries == kTries) break;
        SLOGE("Failed to unmount %s (%s)", path, strerror(-rc));
        ProcessKiller::KillProcessesWithOpenFilesViaReverse(path, kSignalAfterTry[tries - 1]);
        usleep(kRetryPauseUs);
    }
    errno = EBUSY;
    SLOGE("Giving up on unmount %s (%s)", path, strerror(errno));
    return -1;
}
