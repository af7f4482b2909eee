// Disk space taken by a directory tree: the blocks each file occupies,
// symbolic links not followed.
#define LOG_TAG "pelkd"

#include <dirent.h>
#include <fcntl.h>
#include <log/log.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/DirEntry.h"
#include "base/UniqueFd.h"
#include "base/UniqueHandle.h"
#include "partition/Partition.h"

namespace {

int openSubdirectory(int dirFd, const char* name) {
    return openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// Size of every entry of an open directory: a sub-directory counts itself
// plus everything below it. Unreadable entries count nothing.
uint64_t sizeOfEntries(Partition& partition, DIR* dir) {
    const int dirFd = dirfd(dir);
    uint64_t total = 0;
    while (dirent* entry = readdir(dir)) {
        if (pelk::isDotOrDotDot(entry->d_name)) continue;
        struct stat st;
        if (fstatat(dirFd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
        total += partition.stat_size(&st);
        if (!S_ISDIR(st.st_mode)) continue;
        int subFd = openSubdirectory(dirFd, entry->d_name);
        if (subFd >= 0) total += static_cast<uint64_t>(partition.calculate_dir_size(subFd));
    }
    return total;
}

}  // namespace

uint64_t Partition::stat_size(struct stat* st) {
    uint64_t size = static_cast<uint64_t>(st->st_blocks) * 512;
    const uint64_t block = st->st_blksize > 0 ? static_cast<uint64_t>(st->st_blksize) : 0;
    if (block) size = (size + block - 1) / block * block;
    return size;
}

uint64_t Partition::getDirectorySize(const char* path, int includeSelf) {
    pelk::UniqueDir dir(opendir(path));
    if (!dir) {
        ALOGE("Failed to open %s", path);
        return 0;
    }
    uint64_t total = 0;
    struct stat self;
    if (includeSelf && lstat(path, &self) == 0) total = stat_size(&self);
    return total + sizeOfEntries(*this, dir.get());
}

int64_t Partition::calculate_dir_size(int dirFd) {
    pelk::UniqueDir dir(pelk::Fdopendir(pelk::UniqueFd(dirFd)));
    if (!dir) return 0;
    return static_cast<int64_t>(sizeOfEntries(*this, dir.get()));
}
