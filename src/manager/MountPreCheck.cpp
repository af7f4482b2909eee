#define LOG_TAG "pelkd"

#include "manager/MountPreCheck.h"

#include <log/log.h>

#include "partition/Partition.h"

namespace pelk {

MountPreCheck checkAreaToMount(Partition* partition) {
    if (!partition) {
        SLOGE("given partition obj is NULL");
        return MountPreCheck::Refused;
    }
    if (partition->isMounted()) {
        SLOGD("partition is already mounted");
        return MountPreCheck::MountedAlready;
    }
    if (partition->mSrcPath[0] == '\0' || partition->mMntPath[0] == '\0') {
        SLOGE("given partition obj has no path");
        return MountPreCheck::Refused;
    }
    return MountPreCheck::GoOn;
}

}  // namespace pelk
