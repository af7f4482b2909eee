// Whether this storage area is a mount point right now, by the kernel's own
// mount table: the mount path must match a table entry byte for byte, so a
// trailing slash or a longer user id never counts.
#include <errno.h>
#include <string.h>

#include "manager/MountTable.h"
#include "partition/Partition.h"
#include "partition/PartitionLog.h"
#include "base/UniqueHandle.h"

bool Partition::isMounted() {
    pelk::UniqueFile mounts(fopen("/proc/mounts", "r"));
    if (!mounts) {
        PARTITION_LOG(ANDROID_LOG_ERROR, "Error opening /proc/mounts (%s)", strerror(errno));
        return false;
    }
    return pelk::mountTableHas(mounts.get(), mMntPath);
}
