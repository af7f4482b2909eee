// Creating, clearing and removing the directories of a storage area, and
// removing single files that running processes may still hold.
#include <dirent.h>
#include <fcntl.h>
#include <log/log.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "partition/Partition.h"
#include "partition/PartitionLog.h"
#include "process/ProcessKiller.h"
#include "tools/Resources.h"

namespace {

const char* const kTag = "pelkd";

// Kill action after each failed unlink: SIGTERM, then SIGKILL, then a last
// report of who still holds the file.
constexpr int kRemoveActions[] = {1, 2, 0};
constexpr int kRemoveTries = sizeof(kRemoveActions) / sizeof(kRemoveActions[0]);
// Between tries; microseconds, short on purpose.
constexpr useconds_t kRemovePauseUs = 50;

bool isDotEntry(const char* name) { return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')); }

// Directory-ness of an entry, from the entry itself when the file system
// says, else from lstat.
bool isDirectoryEntry(int dirFd, const dirent* entry) {
    if (entry->d_type != DT_UNKNOWN) return entry->d_type == DT_DIR;
    struct stat st;
    return fstatat(dirFd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
}

// Empties one sub-directory of an open directory (the directory itself
// stays). Answers false when the sub-directory could not be walked at all;
// *result is then -1, else the walk's answer.
bool clearSubdirectory(Partition& partition, int dirFd, const char* name, int (*filter)(const char*, int),
                       int* result) {
    *result = -1;
    pelk::UniqueFd subFd(openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!subFd.ok()) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Couldn't openat %s: %s\n", name, strerror(errno));
        return false;
    }
    pelk::UniqueDir sub(fdopendir(subFd.get()));
    if (!sub) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Couldn't fdopendir %s: %s\n", name, strerror(errno));
        return false;
    }
    subFd.release();  // the stream owns it now
    *result = partition.clearDirContents(sub.get(), filter);
    return true;
}

}  // namespace

int Partition::create(const char* /*unused*/, long long /*size*/) {
    PARTITION_LOG(ANDROID_LOG_DEBUG, "Partition::create");
    // A new partition always starts from an empty source directory.
    if (isDirectory(mSrcPath)) clearDirectory(mSrcPath, 1, nullptr);
    if (makeDirectory(mSrcPath, mMode, mUid, mGid) != 0) return -1;
    if (makeDirectory(mMntPath, mMode, mUid, mGid) != 0) return -1;
    return 0;
}

int Partition::remove() {
    if (isMounted()) {
        PARTITION_LOG(ANDROID_LOG_ERROR, "the partition is mounted at [%s]", mMntPath);
        return -1;
    }
    if (clearDirectory(mSrcPath, 1, nullptr) != 0 || clearDirectory(mMntPath, 1, nullptr) != 0) {
        int err = errno;
        // Names the source path even when the mount path failed; log readers
        // look for this one line.
        PARTITION_LOG(ANDROID_LOG_ERROR, "remove directory %s failed : %d(%s)", mSrcPath,
                                err, strerror(err));
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
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Couldn't opendir %s: %s\n", path, strerror(err));
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
        if (isDotEntry(name)) continue;
        const bool isDir = isDirectoryEntry(dirFd, entry);
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
                __android_log_print(ANDROID_LOG_ERROR, kTag, "Couldn't unlinkat %s: %s\n", name, strerror(errno));
                result = -1;
            }
        } else if (unlinkat(dirFd, name, 0) != 0) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Couldn't unlinkat %s: %s\n", name, strerror(errno));
            result = -1;
        }
    }
    return result;
}

int Partition::removeFile(const char* path) {
    for (int attempt = 0; attempt < kRemoveTries; ++attempt) {
        if (unlink(path) == 0 || errno == EINVAL || errno == ENOENT) {
            // The misspelling is the line log readers match.
            PARTITION_LOG(ANDROID_LOG_INFO, "%s sucessfully removed", path);
            return 0;
        }
        const int err = errno;
        const int action = kRemoveActions[attempt];
        PARTITION_LOG(ANDROID_LOG_WARN, "Failed REMOVE %s (%s, retries %d, action %d)", path, strerror(err),
                      kRemoveTries - 1 - attempt, action);
        PARTITION_LOG(ANDROID_LOG_INFO, "Kill processes opening and [%s]", path);
        ProcessKiller::killProcessesWithOpenFiles(path, action);
        usleep(kRemovePauseUs);
    }
    errno = EBUSY;
    PARTITION_LOG(ANDROID_LOG_ERROR, "Giving up on remove %s (%s)", path,
                            strerror(EBUSY));
    return -1;
}
