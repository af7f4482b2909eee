// The inode search: which eCryptfs mounts carry the partition id, and a
// depth-first walk of each for the inode number.
#define LOG_TAG "pelkd.fs_handler"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <log/log.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/DirEntry.h"
#include "base/Strings.h"
#include "base/UniqueFd.h"
#include "base/UniqueHandle.h"
#include "fs_handler/InodePaths.h"
#include "fs_handler/TreeEntries.h"
#include "process/ProcFs.h"

namespace {

constexpr size_t kPathSize = 4096;
constexpr size_t kFieldSize = 256;

// The partition id of a mount's options: the number after the first
// "partition_id=", or -1.
int partitionIdOf(const char* options) {
    const char* found = strstr(options, "partition_id=");
    int id = -1;
    return found && sscanf(found, "partition_id=%d", &id) == 1 ? id : -1;
}

// Walks the open directory at path (already matched against the inode
// itself) in directory order.
bool searchDirectory(pelk::UniqueFd dirFd, const char* path, unsigned long inode, char* result) {
    pelk::UniqueDir dir(pelk::Fdopendir(std::move(dirFd)));
    if (!dir) return false;
    while (dirent* entry = readdir(dir.get())) {
        if (pelk::isDotOrDotDot(entry->d_name)) continue;
        // A file that is not a directory has the inode its entry names, so
        // an entry that says it is neither a directory nor the inode wanted
        // cannot match and is passed over without a stat: on a tree of
        // files that is most of the work. Directories are always stat'ed
        // (one mounted over shows another inode than its entry).
        if (entry->d_type != DT_UNKNOWN && entry->d_type != DT_DIR && entry->d_ino != inode) continue;
        char entryPath[kPathSize];
        struct stat st;
        if (!fsentry::statEntry(dirfd(dir.get()), entry->d_name, path, entryPath, sizeof(entryPath), &st)) {
            SLOGI("get_path_by_inode :: path <%s> is a dangling link\n", entryPath);
            continue;
        }
        // A directory's own inode is checked before its entries, as the
        // search of that directory would start with it.
        if (st.st_ino == inode) {
            pelk::copyWord(result, kPathSize, entryPath);
            return true;
        }
        if (!S_ISDIR(st.st_mode)) continue;
        pelk::UniqueFd child =
            fsentry::openEntryDirectory(dirfd(dir.get()), entry->d_name, entryPath, sizeof(entryPath));
        if (child.ok() && searchDirectory(std::move(child), entryPath, inode, result)) return true;
    }
    return false;
}

}  // namespace

bool get_path_by_inode(char* dirPath, unsigned long inode, char* result) {
    struct stat st;
    if (lstat(dirPath, &st) != 0) {
        SLOGI("get_path_by_inode :: dir_path <%s> is a dangling link\n", dirPath);
        return false;
    }
    if (st.st_ino == inode) {
        pelk::copyWord(result, kPathSize, dirPath);
        return true;
    }
    if (!S_ISDIR(st.st_mode)) {
        SLOGI("get_path_by_inode :: dir_path <%s> not a directory \n", dirPath);
        return false;
    }
    pelk::UniqueFd dirFd(open(dirPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dirFd.ok()) return false;
    return searchDirectory(std::move(dirFd), dirPath, inode, result);
}

bool find_path_by_inode(int partitionId, unsigned long inode, char* fsType, char* result) {
    SLOGI("%s start", "find_path_by_inode");
    pelk::UniqueFile table(fopen("/proc/mounts", "r"));
    if (!table) {
        SLOGE("Error opening /proc/mounts (%s)", strerror(errno));
        return false;
    }
    bool found = pelk::forEachMountLine(table.get(), [&](const char* line) {
        char device[kFieldSize], mountPoint[kFieldSize], type[kFieldSize], options[kFieldSize];
        if (sscanf(line, "%255s %255s %255s %255s\n", device, mountPoint, type, options) != 4) return false;
        if (strcmp(type, fsType) != 0) return false;
        // Several mounts may carry the same id: each is searched in turn.
        return partitionIdOf(options) == partitionId && get_path_by_inode(mountPoint, inode, result);
    });
    if (found)
        SLOGI("%s done :: found", "find_path_by_inode");
    else
        SLOGI("%s done :: not found", "find_path_by_inode");
    return found;
}
