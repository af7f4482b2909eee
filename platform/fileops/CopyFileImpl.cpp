// Host copy engine: single-file copies for the tree rewrite, and whole copies
// of a file or tree between container paths. The chunked copies, directory
// scans and permission migration live in files of their own beside this one.
// Every path goes through openContainerPath, so no request follows a link or
// climbs out of the tree it names.
#include <fcntl.h>
#include <fileops/CopyFileImpl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "ContainerPath.h"
#include "FileContent.h"
#include "TreeCopy.h"
#include "base/UniqueFd.h"
#include "devprofile/DeviceProfile.h"

namespace {

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
    int result = fileops::copyBytes(from.get(), to.get(), 0, -1);
    if (result == 0) result = fileops::setOwnerAndMode(to.get(), uid, gid, st->st_mode & 07777);
    if (result == 0 && fsync(to.get()) != 0) result = -errno;
    if (result != 0) unlink(dst);  // no half copy is left behind
    return result;
}

// ".pelk-copy." and the target's name, cut to a name's longest.
std::string stagingName(const std::string& target) {
    std::string name = ".pelk-copy." + target;
    if (name.size() > NAME_MAX) name.resize(NAME_MAX);
    return name;
}

// Renames staging to target in dir unless target exists by then: a target
// that appeared meanwhile belongs to someone else and is left alone.
int renameIntoPlace(int dir, const char* staging, const char* target) {
    if (renameat2(dir, staging, dir, target, RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL) return -errno;
    // A filesystem without the flag: look, then rename.
    struct stat st;
    if (fstatat(dir, target, &st, AT_SYMLINK_NOFOLLOW) == 0) return -EEXIST;
    return renameat(dir, staging, dir, target) == 0 ? 0 : -errno;
}

}  // namespace

CopyFileImpl::CopyFileImpl() {}
CopyFileImpl::~CopyFileImpl() {}

int CopyFileImpl::CopyFile(const char* src, const char* dst, const struct stat* st, uid_t uid, gid_t gid) {
    if (devprofile::shouldFail("CopyFile")) return -EIO;
    if (!src || !dst) return -EINVAL;
    return copyFile(src, dst, st, uid, gid);
}

int CopyFileImpl::CopyCommand(char* src, int, char* dst, int, unsigned int) {
    if (devprofile::shouldFail("CopyCommand")) return -EIO;
    fileops::ContainerPath from;
    fileops::ContainerPath to;
    int rc = fileops::openContainerPaths(src, dst, &from, &to);
    if (rc != 0) return rc;
    // The paths hold no link and no "..", so their text tells whether the
    // target would lie inside the tree being copied (a copy without end).
    if (fileops::isSameOrBelow(to.normal, from.normal)) return -EINVAL;
    struct stat st;
    if (fstatat(to.parent.get(), to.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) return -EEXIST;
    if (errno != ENOENT) return -errno;

    // The copy is filled under a staging name beside the target and renamed
    // into place whole, so a copy cut short (the daemon killed mid-way)
    // never leaves a half-written target that would also refuse the retry.
    // A staging entry found here was left by such a copy: copies run one at
    // a time, so no live copy owns it.
    std::string staging = stagingName(to.name);
    int dir = to.parent.get();
    fileops::removeEntry(dir, staging.c_str());
    rc = fileops::copyEntry(from.parent.get(), from.name.c_str(), dir, staging.c_str());
    if (rc == 0) rc = renameIntoPlace(dir, staging.c_str(), to.name.c_str());
    if (rc != 0) fileops::removeEntry(dir, staging.c_str());
    return rc;
}
