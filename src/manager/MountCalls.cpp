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
    if (setns(nsFd, CLONE_NEWNS) != 0) return -errno;
    return 0;
}

}  // namespace pelk
