// Host copy engine. The manager creates one at start-up. CopyFile copies one
// regular file for real (content, mode, owner). The copy commands that drive
// the other operations arrive later; until then each of them reports that it
// is not supported on this device rather than pretending to copy.
#include <fcntl.h>
#include <fileops/CopyFileImpl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/FileIo.h"
#include "base/UniqueFd.h"
#include "devprofile/DeviceProfile.h"

namespace {

int copyContent(int from, int to) {
    char buf[65536];
    for (;;) {
        ssize_t n = read(from, buf, sizeof(buf));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -errno;
        if (n == 0) return 0;
        if (!pelk::writeFully(to, buf, static_cast<size_t>(n))) return -errno;
    }
}

// Owner first: a chown clears the set-id bits that the mode then restores.
int copyFile(const char* src, const char* dst, const struct stat* st, uid_t uid, gid_t gid) {
    pelk::UniqueFd from(open(src, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!from.ok()) return -errno;
    struct stat own;
    if (!st) {
        if (fstat(from.get(), &own) != 0) return -errno;
        st = &own;
    }
    if (!S_ISREG(st->st_mode)) return -EINVAL;
    pelk::UniqueFd to(open(dst, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!to.ok()) return -errno;
    int result = copyContent(from.get(), to.get());
    if (result == 0 && fchown(to.get(), uid, gid) != 0) result = -errno;
    if (result == 0 && fchmod(to.get(), st->st_mode & 07777) != 0) result = -errno;
    if (result == 0 && fsync(to.get()) != 0) result = -errno;
    if (result != 0) unlink(dst);  // no half copy is left behind
    return result;
}

}  // namespace

CopyFileImpl::CopyFileImpl() {}
CopyFileImpl::~CopyFileImpl() {}

// 0, or a negative errno (the source is never changed).
int CopyFileImpl::CopyFile(const char* src, const char* dst, const struct stat* st, uid_t uid, gid_t gid) {
    if (devprofile::shouldFail("CopyFile")) return -EIO;
    if (!src || !dst) return -EINVAL;
    return copyFile(src, dst, st, uid, gid);
}
int CopyFileImpl::CopyCommand(char*, int, char*, int, unsigned int) { return -EOPNOTSUPP; }
int CopyFileImpl::copyChunk(const char*, int, const char*, int, long long, long, long long, int) {
    return -EOPNOTSUPP;
}
int CopyFileImpl::copyCancel(const char*, long long) { return -EOPNOTSUPP; }
int CopyFileImpl::getDirNextFile(const char*, char*, long) { return -EOPNOTSUPP; }
int CopyFileImpl::changePermissionMigrationCommand(char*, int, int, int) { return -EOPNOTSUPP; }
