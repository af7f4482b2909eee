// Chunked copies: the caller sends a file in ranges, each written at its own
// offset of the target, and learns from the answer when the file is whole.
// The chunk that reaches the announced size completes the copy: the target
// gets that size and the source's mode and owner. A cancel removes the
// partial target.
#include <fcntl.h>
#include <fileops/CopyFileImpl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "ContainerPath.h"
#include "FileContent.h"
#include "base/UniqueFd.h"
#include "devprofile/DeviceProfile.h"

namespace {

// A range that is negative, or lies past the announced size, is refused
// before anything is opened.
bool isValidRange(long long offset, long length, long long size) {
    if (offset < 0 || length < 0 || size < 0) return false;
    return offset <= size && length <= size - offset;
}

int openRegular(const fileops::ContainerPath& path, int flags, pelk::UniqueFd* out, struct stat* st) {
    out->reset(openat(path.parent.get(), path.name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!out->ok()) return -errno;
    if (fstat(out->get(), st) != 0) return -errno;
    return S_ISREG(st->st_mode) ? 0 : -EINVAL;
}

int completeTarget(int fd, long long size, const struct stat& source) {
    if (ftruncate(fd, size) != 0) return -errno;
    int rc = fileops::setOwnerAndMode(fd, source.st_uid, source.st_gid, source.st_mode & 07777);
    return rc == 0 ? 1 : rc;
}

}  // namespace

int CopyFileImpl::copyChunk(const char* src, int, const char* dst, int, long long offset, long length, long long size,
                            int) {
    if (devprofile::shouldFail("copyChunk")) return -EIO;
    if (!isValidRange(offset, length, size)) return -EINVAL;
    fileops::ContainerPath from;
    fileops::ContainerPath to;
    int rc = fileops::openContainerPaths(src, dst, &from, &to);
    if (rc != 0) return rc;

    pelk::UniqueFd in;
    pelk::UniqueFd out;
    struct stat source;
    struct stat target;
    rc = openRegular(from, O_RDONLY, &in, &source);
    if (rc != 0) return rc;
    if (source.st_size < offset + length) return -EINVAL;  // the range is not in the source
    rc = openRegular(to, O_WRONLY | O_CREAT, &out, &target);
    if (rc != 0) return rc;
    if (source.st_dev == target.st_dev && source.st_ino == target.st_ino) return -EINVAL;

    rc = fileops::copyBytes(in.get(), out.get(), offset, length);
    if (rc != 0) return rc;
    return offset + length == size ? completeTarget(out.get(), size, source) : 0;
}

int CopyFileImpl::copyCancel(const char* dst, long long size) {
    if (devprofile::shouldFail("copyCancel")) return -EIO;
    if (size < 0) return -EINVAL;
    fileops::ContainerPath target;
    int rc = fileops::openContainerPath(dst, &target);
    if (rc != 0) return rc;
    struct stat st;
    if (fstatat(target.parent.get(), target.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? 0 : -errno;  // nothing was written yet
    }
    // Only a file a chunked copy could have made is removed.
    if (!S_ISREG(st.st_mode)) return -EINVAL;
    return unlinkat(target.parent.get(), target.name.c_str(), 0) == 0 ? 0 : -errno;
}
