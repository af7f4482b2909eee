// Owner and mode of a migrated tree: every entry below the path, and the
// path itself, gets the given uid, gid and mode. Links are never followed:
// a link gets the owner (of the link itself) and keeps its mode.
#include <fcntl.h>
#include <fileops/CopyFileImpl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "ContainerPath.h"
#include "DirWalk.h"
#include "FileContent.h"
#include "base/UniqueFd.h"
#include "devprofile/DeviceProfile.h"

namespace {

struct Permission {
    uid_t uid;  // (uid_t)-1 keeps the owner, as chown does
    gid_t gid;
    mode_t mode;
};

int applyToTree(int dir, const char* name, const Permission& perm);

// Children first; the directory's own change comes last, through its fd.
int applyToDirectory(int dir, const char* name, const Permission& perm) {
    pelk::UniqueFd fd;
    int rc = fileops::openDirectoryAt(dir, name, &fd);
    if (rc != 0) return rc;
    pelk::UniqueFd walk(fcntl(fd.get(), F_DUPFD_CLOEXEC, 0));
    if (!walk.ok()) return -errno;
    rc = fileops::forEachEntry(std::move(walk),
                               [&perm](int inner, const char* child) { return applyToTree(inner, child, perm); });
    if (rc != 0) return rc;
    return fileops::setOwnerAndMode(fd.get(), perm.uid, perm.gid, perm.mode);
}

int applyToTree(int dir, const char* name, const Permission& perm) {
    struct stat st;
    if (fstatat(dir, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return -errno;
    if (S_ISDIR(st.st_mode)) return applyToDirectory(dir, name, perm);
    if (fchownat(dir, name, perm.uid, perm.gid, AT_SYMLINK_NOFOLLOW) != 0) return -errno;
    if (S_ISLNK(st.st_mode)) return 0;
    return fchmodat(dir, name, perm.mode, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : -errno;
}

}  // namespace

int CopyFileImpl::changePermissionMigrationCommand(char* path, int uid, int gid, int mode) {
    if (devprofile::shouldFail("changePermissionMigrationCommand")) return -EIO;
    if (uid < -1 || gid < -1 || mode < 0 || mode > 07777) return -EINVAL;
    fileops::ContainerPath root;
    int rc = fileops::openContainerPath(path, &root);
    if (rc != 0) return rc;
    const Permission perm{static_cast<uid_t>(uid), static_cast<gid_t>(gid), static_cast<mode_t>(mode)};
    return applyToTree(root.parent.get(), root.name.c_str(), perm);
}
