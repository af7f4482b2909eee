// One entry of a tree walk, looked at the way the walks always have: its
// path formed as "%s/%s" in a 4096-byte buffer and lstat'ed. The entry is
// stat'ed and opened relative to its open parent, which names the same file
// without resolving the whole path again; a path cut by the buffer is used
// as cut, as an lstat of the formed path would.
#pragma once

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include "base/UniqueFd.h"

namespace fsentry {

// Forms "<parent>/<name>" into path (size bytes) and lstat's the entry into
// *st; false when the stat fails.
inline bool statEntry(int parentFd, const char* name, const char* parent, char* path, size_t size, struct stat* st) {
    int length = snprintf(path, size, "%s/%s", parent, name);
    if (length < 0 || static_cast<size_t>(length) >= size) return lstat(path, st) == 0;
    return fstatat(parentFd, name, st, AT_SYMLINK_NOFOLLOW) == 0;
}

// Opens the entry, a directory, for reading; the path is used only when
// the formed path was cut. Never follows a link.
inline pelk::UniqueFd openEntryDirectory(int parentFd, const char* name, const char* path, size_t size) {
    int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    size_t formed = strnlen(path, size);
    if (formed + 1 >= size) return pelk::UniqueFd(open(path, flags));
    return pelk::UniqueFd(openat(parentFd, name, flags));
}

}  // namespace fsentry
