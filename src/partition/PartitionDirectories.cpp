// Creating, clearing and removing the directories of a storage area, and
// removing single files that running processes may still hold.
#define LOG_TAG "pelkd"

#include <dirent.h>
#include <fcntl.h>
#include <log/log.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/DirEntry.h"
#include "base/UniqueFd.h"
#include "base/UniqueHandle.h"
#include "partition/Partition.h"
#include "process/ProcessKiller.h"

namespace {

// Kill action after each failed unlink: SIGTERM, then SIGKILL, then a last
// report of who still holds the file.
constexpr int kRemoveActions[] = {1, 2, 0};
constexpr int kRemoveTries = sizeof(kRemoveActions) / sizeof(kRemoveActions[0]);
// Between tries; microseconds, short on purpose.
constexpr useconds_t kRemovePauseUs = 50;

// Empties one sub-directory of an open directory (the directory itself
// stays). Answers false when the sub-directory could not be walked at all;
// *result is then -1, else the walk's answer.
bool clearSubdirectory(Partition& partition, int dirFd, const char* name, int (*filter)(const char*, int),
                       int* result) {
    *result = -1;
    pelk::UniqueFd subFd(openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!subFd.ok()) {
        ALOGE("Couldn't openat %s: %s\n", name, strerror(errno));
        return false;
    }
    pelk::UniqueDir sub(pelk::Fdopendir(std::move(subFd)));
    if (!sub) {
        ALOGE("Couldn't fdopendir %s: %s\n", name, strerror(errno));
        return false;
    }
    *result = partition.clearDirContents(sub.get(), filter);
    return true;
}

}  // namespace

int Partition::create(const char* /*unused*/, long long /*size*/) {
    SLOGD("Partition::create");
    // A new partition always starts from an empty source directory.
    if (isDirectory(mSrcPath)) clearDirectory(mSrcPath, 1, nullptr);
    if (makeDirectory(mSrcPath, mMode, mUid, mGid) != 0) return -1;
    if (makeDirectory(mMntPath, mMode, mUid, mGid) != 0) return -1;
    return 0;
}

int Partition::remove() {
    if (isMounted()) {
        SLOGE("the partition is mounted at [%s]", mMntPath);
        return -1;
    }
    if (clearDirectory(mSrcPath, 1, nullptr) != 0 || clearDirectory(mMntPath, 1, nullptr) != 0) {
        int err = errno;
        // Names the source path even when the mount path failed; log readers
        // look for this one line.
        SLOGE("remove directory %s failed : %d(%s)", mSrcPath, err, strerror(err));
        return -1;
    }
    return 0;
}

bool Partition::isDirectory(const char* path) {
    struct stat st;
    return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

int Partition::removeDirectory(const char* path) { return clearDirectory(path, 1, nullptr); }

int Partition::clearDirectory(const char* path, int removeSelf, int (*filter)(const char*, int)) {
    int result;
    {
        pelk::UniqueDir dir(opendir(path));
        if (!dir) {
            int err = errno;
            ALOGE("Couldn't opendir %s: %s\n", path, strerror(err));
            return -err;
        }
        result = clearDirContents(dir.get(), filter);
    }
    if (removeSelf && result == 0) return rmdir(path);
    return result;
}

int Partition::clearDirContents(DIR* dir, int (*filter)(const char*, int)) {
    const int dirFd = dirfd(dir);
    if (dirFd < 0) return -1;
    int result = 0;
    while (dirent* entry = readdir(dir)) {
        const char* name = entry->d_name;
        if (pelk::isDotOrDotDot(name)) continue;
        const bool isDir = pelk::entryType(dirFd, entry) == DT_DIR;
        // The filter keeps an entry whole: it is neither deleted nor entered.
        if (filter && filter(name, isDir ? 1 : 0) != 0) continue;

        if (isDir) {
            int walked = 0;
            // A sub-directory that could not be looked into is left where it
            // is: its contents were never seen, so it is not ours to remove.
            if (!clearSubdirectory(*this, dirFd, name, filter, &walked)) {
                result = -1;
                continue;
            }
            if (walked != 0) result = -1;
            if (unlinkat(dirFd, name, AT_REMOVEDIR) != 0) {
                ALOGE("Couldn't unlinkat %s: %s\n", name, strerror(errno));
                result = -1;
            }
        } else if (unlinkat(dirFd, name, 0) != 0) {
            ALOGE("Couldn't unlinkat %s: %s\n", name, strerror(errno));
            result = -1;
        }
    }
    return result;
}

int Partition::removeFile(const char* path) {
    for (int attempt = 0; attempt < kRemoveTries; ++attempt) {
        if (unlink(path) == 0 || errno == EINVAL || errno == ENOENT) {
            // The misspelling is the line log readers match.
            SLOGI("%s sucessfully removed", path);
            return 0;
        }
        const int err = errno;
        const int action = kRemoveActions[attempt];
        SLOGW("Failed REMOVE %s (%s, retries %d, action %d)", path, strerror(err), kRemoveTries - 1 - attempt, action);
        SLOGI("Kill processes opening and [%s]", path);
        ProcessKiller::killProcessesWithOpenFiles(path, action);
        usleep(kRemovePauseUs);
    }
    errno = EBUSY;
    SLOGE("Giving up on remove %s (%s)", path, strerror(EBUSY));
    return -1;
}
