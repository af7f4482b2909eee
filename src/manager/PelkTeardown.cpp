// Taking container storage down, and forcing a user's areas into existence
// or out of it. Every area is a Partition of the type lists, in list order.
#define LOG_TAG "pelkd"

#include <log/log.h>
#include <stdio.h>

#include <persona/persona.h>

#include "manager/Pelk.h"
#include "manager/UserWorker.h"
#include "partition/Partition.h"

namespace {

// Only this many containers are torn down together: further ones are not
// seen (a deliberately small bound the platform relies on).
const int kTeardownUsers = 5;

// Unmounts the user's areas of a list in order, stopping at the first that
// stays mounted with the line given (main buffer).
template <size_t N>
int unmountInOrder(Pelk* pelk, int userId, const int32_t (&types)[N], const char* failureLine) {
    for (int32_t type : types) {
        Partition area(userId, type, nullptr, false);
        if (pelk->unmount(&area) != 0) {
            ALOGE("%s", failureLine);
            return -1;
        }
    }
    return 0;
}

// The type list of a storage kind: 0 CE, 1 DE, 2 the device-wide areas.
bool typesOfKind(int kind, const int32_t** types, size_t* count) {
    switch (kind) {
        case 0:
            *types = Partition::LIST_CE_STORAGE;
            *count = 4;
            return true;
        case 1:
            *types = Partition::LIST_DE_STORAGE;
            *count = 3;
            return true;
        case 2:
            *types = Partition::LIST_MIREL_STORAGE;
            *count = 2;
            return true;
        default: return false;
    }
}

}  // namespace

int Pelk::unmountStorageCe(int userId) {
    // From here on the user counts as locked, whatever the areas say.
    updateStatusMap(userId, false, true);
    if (!isCLContainer(userId)) {
        char view[Partition::PATH_SIZE] = {0};
        snprintf(view, sizeof(view), "/storage/emulated/%d", userId);
        pelk::startUserWorker(userId, [this, userId, &view] { unmountProcesses(userId, view); });
    }
    return unmountInOrder(this, userId, Partition::LIST_CE_STORAGE, "Unmount CE ERROR");
}

int Pelk::unmountStorageDe(int userId) {
    return unmountInOrder(this, userId, Partition::LIST_DE_STORAGE, "Unmount DE ERROR");
}

int Pelk::unmountStorageMirel() {
    return unmountInOrder(this, 0, Partition::LIST_MIREL_STORAGE, "Unmount MIREL ERROR");
}

void Pelk::unmountAllZanthStorages() {
    int users[kTeardownUsers] = {0};
    int count = scanZanthPersonas(users, kTeardownUsers);
    if (count > kTeardownUsers) count = kTeardownUsers;
    for (int i = 0; i < count; ++i) {
        // DE goes only once CE is down: CE lives on top of it.
        if (unmountStorageCe(users[i]) != 0 || unmountStorageDe(users[i]) != 0) {
            SLOGE("Failed to unmount storages of %d ERROR", users[i]);
        }
    }
}

int Pelk::forceCreateStorage(int userId, int kind) {
    const int32_t* types = nullptr;
    size_t count = 0;
    if (!typesOfKind(kind, &types, &count)) return -1;
    for (size_t i = 0; i < count; ++i) {
        Partition area(userId, types[i], nullptr, false);
        if (area.create(nullptr, -1) != 0) return -1;
    }
    return 0;
}

int Pelk::forceRemoveStorage(int userId, int kind) {
    const int32_t* types = nullptr;
    size_t count = 0;
    if (!typesOfKind(kind, &types, &count)) return -1;
    // Every area is tried: one that cannot go must not keep the others.
    int result = 0;
    for (size_t i = 0; i < count; ++i) {
        Partition area(userId, types[i], nullptr, false);
        if (area.remove() != 0) result = -1;
    }
    return result;
}

int Pelk::resetZanthStorage(int) { return -1; }
