// Directory preparation: create a directory when missing, or bring an existing
// one to the wanted mode and owner; anything but a directory is refused.
#include <cutils/fs.h>
#include <fcntl.h>
#include <log/log.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/UniqueFd.h"
#include "devprofile/DeviceProfile.h"

namespace {

const char kTag[] = "cutils";

int fail(const char* what, const char* path, int err) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "Failed to %s(%s): %s", what, path, strerror(err));
    errno = err;
    return -1;
}

}  // namespace

extern "C" int fs_prepare_dir(const char* path, mode_t mode, uid_t uid, gid_t gid) {
    if (devprofile::shouldFail("fs_prepare_dir")) {
        errno = EIO;
        return -1;
    }
    if (!path || !*path) {
        errno = EINVAL;
        return -1;
    }
    if (mkdir(path, mode) != 0 && errno != EEXIST) return fail("mkdir", path, errno);
    // From here on everything goes through one descriptor of the directory
    // itself, so a name swapped for a link in between is refused, not followed.
    pelk::UniqueFd dir(open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!dir.ok()) {
        // A symbolic link is not the directory asked for either.
        if (errno == ELOOP || errno == ENOTDIR) return fail("prepare", path, ENOTDIR);
        return fail("open", path, errno);
    }
    struct stat st;
    if (fstat(dir.get(), &st) != 0) return fail("stat", path, errno);
    // Owner first: a new owner may cost mode bits, so the mode is set after.
    const bool ownerDiffers = st.st_uid != uid || st.st_gid != gid;
    if (ownerDiffers && fchown(dir.get(), uid, gid) != 0) return fail("chown", path, errno);
    // mkdir honours the umask; the wanted mode does not.
    const mode_t wanted = mode & ALLPERMS;
    if ((ownerDiffers || (st.st_mode & ALLPERMS) != wanted) && fchmod(dir.get(), wanted) != 0)
        return fail("chmod", path, errno);
    return 0;
}
