// A container user's DE and CE storage: creating the missing directories,
// handing out the DE key, mounting each group in its fixed order, and after
// a CE mount the worker that gives the user's storage to the running apps.
#define LOG_TAG "pelkd"

#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include <cutils/fs.h>
#include <log/log.h>
#include <persona/persona.h>
#include <private/android_filesystem_config.h>

#include "base/Secret.h"
#include "keystore/Quarn3Helper.h"
#include "keystore/QuarnHelper.h"
#include "manager/Pelk.h"
#include "manager/StorageReport.h"
#include "manager/UserWorker.h"
#include "partition/Partition.h"

namespace {

constexpr int kRawKeySize = 32;
// The caller's key buffer: 32 key bytes and a terminating zero.
constexpr int kKeyBufferSize = kRawKeySize + 1;
constexpr size_t kPathSize = 4096;

// Creates the areas of the list whose mount path is missing; only the types
// the filter keeps are looked at.
template <size_t N, typename Keep>
int createMissing(int userId, const int32_t (&types)[N], Keep keep, const char* failure) {
    for (int32_t type : types) {
        if (!keep(type)) continue;
        Partition area(userId, type, nullptr, false);
        if (access(area.mMntPath, F_OK) == 0) continue;
        if (area.create(nullptr, -1) != 0) {
            pelk::reportPrepareFailure(failure);
            return -1;
        }
    }
    return 0;
}

// Mounts every area of the list in order; the first failure ends the walk
// and leaves the areas before it mounted.
template <size_t N>
int mountAll(Pelk* pelk, int userId, const int32_t (&types)[N], const char* key, bool isRawKey, bool partitionFlag) {
    for (int32_t type : types) {
        Partition area(userId, type, nullptr, partitionFlag);
        if (pelk->ecryptfsMount(&area, key, isRawKey) != 0) return -1;
    }
    return 0;
}

}  // namespace

int Pelk::prepareStorageDe(int userId, char* key) {
    if (createMissing(
            userId, Partition::LIST_DE_STORAGE, [](int32_t) { return true; },
            "Prepare DE ERROR : Failed to create de directory !!\n") != 0) {
        return -1;
    }
    std::unique_ptr<QuarnHelper> helper(new QuarnHelper(userId, kQuarnKeyDe));
    if (helper->isKeyExist()) {
        pelk::SecretBuffer<kQuarnKeyBufferSize> fetched;
        int len = 0;
        if (helper->getKeyFromQuarnKeyStore(fetched.data(), &len) == -1 || len < 1) {
            pelk::reportPrepareFailure("Prepare DE ERROR : Failed to get fekek_de!!\n");
            return -1;
        }
        // The store's key goes to the caller as it is, bounded by the
        // caller's 33 bytes.
        memcpy(key, fetched.data(), static_cast<size_t>(std::min(len, kKeyBufferSize)));
        return 0;
    }
    // No DE key in the store: a new one, kept encrypted in the EDEK file.
    pelk::SecretBuffer<kKeyBufferSize> created;
    if (getDEKeyFromEDEK(userId, created.chars(), true) != 0) {
        pelk::reportPrepareFailure("Prepare DE ERROR : Failed to get fekek_de from edek!!\n");
        return -1;
    }
    memcpy(key, created.data(), kRawKeySize);
    key[kRawKeySize] = '\0';
    return 0;
}

int Pelk::prepareStorageCe(int userId) {
    // The CE data area and the sdcard come from the platform and the sdcard
    // preparation; only the system and misc areas are made here.
    auto systemOrMisc = [](int32_t type) { return type == PARTITION_CE_SYSTEM || type == PARTITION_CE_MISC; };
    return createMissing(userId, Partition::LIST_CE_STORAGE, systemOrMisc,
                         "Prepare CE ERROR : Failed to create ce directory !!\n");
}

int Pelk::mountStorageDe(int userId, const char* key, bool isRawKey, bool partitionFlag) {
    if (mountAll(this, userId, Partition::LIST_DE_STORAGE, key, isRawKey, partitionFlag) != 0) {
        ALOGE("Mount DE ERROR");
        return -1;
    }
    return 0;
}

int Pelk::mountStorageCe(int userId, const char* key, bool isRawKey, bool partitionFlag, bool remount) {
    if (mountAll(this, userId, Partition::LIST_CE_STORAGE, key, isRawKey, partitionFlag) != 0) {
        ALOGE("Mount CE ERROR");
        return -1;
    }
    isUnlockedByCe[userId] = true;
    if (!remount || isCLContainer(userId) != 0) return 0;

    char storage[kPathSize] = {0};
    snprintf(storage, sizeof(storage), "/storage/emulated/%d", userId);
    fs_prepare_dir(storage, 0770, AID_ROOT, AID_SDCARD_RW);
    // A worker of this user still running: the apps get the storage from
    // it or not at all, never from two at once.
    pelk::startUserWorker(userId, [this, userId] { remountProcesses(0, userId); });
    return 0;
}
