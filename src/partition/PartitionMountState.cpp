// Whether this storage area is a mount point right now, by the kernel's own
// mount table: the mount path must match a table entry byte for byte, so a
// trailing slash or a longer user id never counts.
#define LOG_TAG "pelkd"

#include <errno.h>
#include <log/log.h>
#include <string.h>

#include "base/UniqueHandle.h"
#include "partition/Partition.h"
#include "process/ProcFs.h"

bool Partition::isMounted() {
    pelk::UniqueFile mounts(fopen("/proc/mounts", "r"));
    if (!mounts) {
        SLOGE("Error opening /proc/mounts (%s)", strerror(errno));
        return false;
    }
    return pelk::mountTableHas(mounts.get(), mMntPath);
}
