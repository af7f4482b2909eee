// The recursive copy and removal behind whole copies, walked by descriptor
// so the depth of a tree is not limited by the length of its paths.
#include "TreeCopy.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include "ContainerPath.h"
#include "DirWalk.h"
#include "FileContent.h"
#include "base/UniqueFd.h"

namespace fileops {

namespace {

// Times last, once nothing more is written below a directory.
int applyAttributes(int fd, const struct stat& st) {
    int rc = setOwnerAndMode(fd, st.st_uid, st.st_gid, st.st_mode & 07777);
    if (rc != 0) return rc;
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    if (futimens(fd, times) != 0) return -errno;
    return 0;
}

int copyRegular(int srcDir, const char* srcName, int dstDir, const char* dstName, const struct stat& st) {
    pelk::UniqueFd from(openat(srcDir, srcName, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!from.ok()) return -errno;
    pelk::UniqueFd to(openat(dstDir, dstName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!to.ok()) return -errno;
    int rc = copyBytes(from.get(), to.get(), 0, -1);
    return rc != 0 ? rc : applyAttributes(to.get(), st);
}

int copyDirectory(int srcDir, const char* srcName, int dstDir, const char* dstName, const struct stat& st) {
    pelk::UniqueFd from;
    int rc = openDirectoryAt(srcDir, srcName, &from);
    if (rc != 0) return rc;
    // Only root may enter the copy while it is being filled.
    if (mkdirat(dstDir, dstName, 0700) != 0) return -errno;
    pelk::UniqueFd to;
    rc = openDirectoryAt(dstDir, dstName, &to);
    if (rc != 0) return rc;
    int toFd = to.get();
    rc = forEachEntry(std::move(from),
                      [toFd](int fromFd, const char* name) { return copyEntry(fromFd, name, toFd, name); });
    return rc != 0 ? rc : applyAttributes(toFd, st);
}

int copyLink(int srcDir, const char* srcName, int dstDir, const char* dstName, const struct stat& st) {
    char target[PATH_MAX];
    ssize_t n = readlinkat(srcDir, srcName, target, sizeof(target) - 1);
    if (n < 0) return -errno;
    target[n] = '\0';
    if (symlinkat(target, dstDir, dstName) != 0) return -errno;
    if (fchownat(dstDir, dstName, st.st_uid, st.st_gid, AT_SYMLINK_NOFOLLOW) != 0) return -errno;
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    if (utimensat(dstDir, dstName, times, AT_SYMLINK_NOFOLLOW) != 0) return -errno;
    return 0;
}

}  // namespace

int copyEntry(int srcDir, const char* srcName, int dstDir, const char* dstName) {
    struct stat st;
    if (fstatat(srcDir, srcName, &st, AT_SYMLINK_NOFOLLOW) != 0) return -errno;
    switch (st.st_mode & S_IFMT) {
        case S_IFREG: return copyRegular(srcDir, srcName, dstDir, dstName, st);
        case S_IFDIR: return copyDirectory(srcDir, srcName, dstDir, dstName, st);
        case S_IFLNK: return copyLink(srcDir, srcName, dstDir, dstName, st);
        default: return 0;
    }
}

int removeEntry(int dir, const char* name) {
    struct stat st;
    if (fstatat(dir, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return -errno;
    if (!S_ISDIR(st.st_mode)) return unlinkat(dir, name, 0) == 0 ? 0 : -errno;
    pelk::UniqueFd fd;
    int rc = openDirectoryAt(dir, name, &fd);
    if (rc != 0) return rc;
    rc = forEachEntry(std::move(fd), [](int inner, const char* child) { return removeEntry(inner, child); });
    if (rc != 0) return rc;
    return unlinkat(dir, name, AT_REMOVEDIR) == 0 ? 0 : -errno;
}

}  // namespace fileops
