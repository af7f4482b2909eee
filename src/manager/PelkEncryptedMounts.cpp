// Mounting one storage area through the container encryption library, with
// a raw key or with the container password, and starting the sdcard views
// of the areas that back an emulated SD card.
#define LOG_TAG "pelkd"

#include <stdio.h>
#include <sys/stat.h>

#include <crypt/crypt.h>
#include <log/log.h>
#include <persona/persona.h>

#include "manager/MountPreCheck.h"
#include "manager/Pelk.h"
#include "partition/Partition.h"

namespace {

constexpr int kIdSize = 32;
constexpr int kKeyPathSize = 512;
// Mode handed to the library for the types outside the table.
constexpr int kDefaultMode = 2;

// The library's mount mode of each area type.
int mountModeOf(int type) {
    switch (type) {
        case PARTITION_CE_DATA: return 1;
        case PARTITION_CE_SDCARD: return 2;
        case PARTITION_PRIVATE_MODE: return 3;
        case PARTITION_MIREL_USER: return 4;
        case PARTITION_MIREL_MEDIA: return 5;
        case PARTITION_DE_DATA: return 1;
        case PARTITION_DE_SYSTEM: return 100;
        case PARTITION_DE_MISC: return 101;
        case PARTITION_CE_SYSTEM: return 100;
        case PARTITION_CE_MISC: return 101;
        default: return kDefaultMode;
    }
}

// Password mode: the password must open the user's key file before any
// mount is tried.
int checkPassword(int userId, const char* password) {
    char id[kIdSize];
    snprintf(id, sizeof(id), "%d", userId);
    char path[kKeyPathSize];
    snprintf(path, sizeof(path), "/data/system/users/zanth_edk_%s", id);
    struct stat st;
    if (stat(path, &st) != 0) {
        SLOGE("EDK No available :: Error\n");
        return -1;
    }
    if (fips_verify_password(path, password) != 0) {
        SLOGE("EDK verify failed :: Error\n");
        return -1;
    }
    return 0;
}

}  // namespace

int Pelk::ecryptfsMount(Partition* partition, const char* secret, bool isKey) {
    // ERROR on purpose: every mount shows on every build.
    SLOGE(">>>> mounting...\n");
    switch (pelk::checkAreaToMount(partition)) {
        case pelk::MountPreCheck::Refused: return -1;
        case pelk::MountPreCheck::MountedAlready: return 0;
        case pelk::MountPreCheck::GoOn: break;
    }
    const int mode = mountModeOf(partition->mType);
    if (!isKey && checkPassword(partition->mUserId, secret) != 0) return -1;

    SLOGI("Mounting <%s>", partition->mMntPath);
    SLOGI("ecryptfs mounting...");
    const int flag = partition->mMirelSupported ? 1 : 0;
    if (!isKey) {
        // The password mode mounts the area and nothing else.
        return mount_ecryptfs_withpwd(secret, partition->mSrcPath, partition->mMntPath, mode, 0, flag,
                                      partition->mUserId, -1, partition->mType);
    }
    int rc = mount_ecryptfs(secret, partition->mSrcPath, partition->mMntPath, mode, 0, flag, partition->mUserId,
                            partition->mType);
    if (flag && rc == 0 && partition->mType == PARTITION_CE_SDCARD && isStrond(partition->mUserId) == 0 &&
        !partition->makeZanthChamberDirectory()) {
        // Kept as worded: nothing is unmounted here, the caller undoes it.
        SLOGE("FATAL :can't configure chamber directory.. unmounting");
        return -1;
    }
    // The views start even after a failed mount, and the mount's own result
    // is still what the caller gets; the order is intended.
    if (partition->mType == PARTITION_MIREL_MEDIA) {
        if (mountSdcardfs(partition) == -1) return -1;
    } else if (partition->mType == PARTITION_CE_SDCARD) {
        if (partition->preparePartition() != 0) return -1;
        if (mountSdcardfs(partition) == -1) return -1;
    }
    return rc;
}
