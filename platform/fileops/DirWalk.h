// The one loop over a directory's entries that the copy engine's walks share.
#pragma once

#include <dirent.h>
#include <errno.h>

#include <utility>

#include "base/DirEntry.h"
#include "base/UniqueFd.h"
#include "base/UniqueHandle.h"

namespace fileops {

// Calls visit(dirFd, name) for every entry of the directory open at fd but
// the dot entries, and stops at the first non-zero answer, which it returns.
// 0 after the last entry, or a negative errno when the directory cannot be
// read. Consumes fd.
template <typename Visit>
int forEachEntry(pelk::UniqueFd&& fd, Visit visit) {
    pelk::UniqueDir dir(pelk::Fdopendir(std::move(fd)));
    if (!dir) return -errno;
    int dirFd = dirfd(dir.get());
    for (;;) {
        errno = 0;
        struct dirent* entry = readdir(dir.get());
        if (!entry) return errno ? -errno : 0;
        if (pelk::isDotOrDotDot(entry->d_name)) continue;
        int rc = visit(dirFd, entry->d_name);
        if (rc != 0) return rc;
    }
}

}  // namespace fileops
