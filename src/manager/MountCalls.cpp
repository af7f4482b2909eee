#include "manager/MountCalls.h"

#include <errno.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace pelk {

int bindMount(const char* src, const char* dst) {
    if (TEMP_FAILURE_RETRY(mount(src, dst, nullptr, MS_BIND, nullptr)) != 0) return -errno;
    return 0;
}

int detachMount(const char* path, int flags) {
    if (TEMP_FAILURE_RETRY(umount2(path, flags)) != 0) return -errno;
    return 0;
}

int enterMountNamespace(int nsFd) {
    if (setns(nsFd, CLONE_NEWNS) == 0) return 0;
    // setns refuses a mount namespace (EINVAL) while another thread shares
    // the caller's root and working directory. A forked child has no other
    // thread of the program, but a runtime may start one of its own in every
    // child (a thread sanitizer does): the child then takes a private copy.
    if (errno != EINVAL || unshare(CLONE_FS) != 0) return -errno;
    if (setns(nsFd, CLONE_NEWNS) != 0) return -errno;
    return 0;
}

}  // namespace pelk
