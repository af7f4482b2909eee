// Chamber directories (folders of a container's storage that the encryption
// library is told to treat specially), and the sdcard partition's per-view
// directories and source permissions.
#define LOG_TAG "pelkd"

#include <chamber/chamber.h>
#include <fcntl.h>
#include <log/log.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/UniqueFd.h"
#include "config/EngineConfig.h"
#include "partition/Partition.h"
#include "partition/PartitionFormat.h"

namespace {

constexpr unsigned int kViewMode = 0771;
constexpr int32_t kEngineHasChamber = 2;
const char* const kViewRoots[] = {"/mnt/zanth/default/emulated", "/mnt/zanth/read/emulated",
                                  "/mnt/zanth/write/emulated"};

void formatEngineChamberPath(char* out, const char* mntPath, int engineId) {
    (void)pelk::formatBelow(out, mntPath, "/Chamber.%d", engineId);
}

// The registry hears only of paths inside an area: the empty path of an
// area of unknown type names none (joined, it would be the root's).
void registerChamber(int id, const char* path) {
    if (path[0] != '\0') add_chamber_directory(id, path);
}

// Replaces whatever stands at path (a file, a link) by a fresh directory,
// unless a directory is already there.
void makeEngineChamberDirectory(Partition& partition, const char* path) {
    if (partition.isDirectory(path)) return;
    SLOGE("making chamberPath %s", path);
    unlink(path);
    mkdir(path, 0777);
}

}  // namespace

bool Partition::makeZanthChamberDirectory() {
    if (mType != PARTITION_CE_SDCARD) {
        // The misspelt message is kept as log readers know it.
        SLOGE("makeChamberDirectory is allowedonly for zanth container (supporting old impl)");
        return false;
    }
    char path[PATH_SIZE];
    pelk::formatPath(path, "%s/%s", mMntPath, "Chamber");
    if (makeDirectory(path, mMode, mUid, mGid) != 0) {
        SLOGE("Error to make DIR[%s]\n", path);
        return false;
    }
    add_chamber_directory(mUserId, path);
    return true;
}

bool Partition::removeZanthChamberDirectory() {
    if (mType != PARTITION_CE_SDCARD) {
        SLOGE("removeZanthChamberDirectory is allowedonly for zanth container (supporting old impl)");
        return false;
    }
    char path[PATH_SIZE];
    pelk::formatPath(path, "%s/%s", mMntPath, "Chamber");
    // Callers read true as "nothing removed": either nothing was there or
    // the removal failed.
    if (!isDirectory(path)) return true;
    return clearDirectory(path, 1, nullptr) != 0;
}

void Partition::createEngineChamber(int engineId) {
    char path[PATH_SIZE];
    formatEngineChamberPath(path, mMntPath, engineId);
    makeEngineChamberDirectory(*this, path);
    registerChamber(engineId, path);
}

void Partition::removeEngineChamber(int engineId) {
    char path[PATH_SIZE];
    formatEngineChamberPath(path, mMntPath, engineId);
    if (path[0] != '\0') del_chamber_directory(path);
    clearDirectory(path, 1, nullptr);
}

void Partition::enableEngineChambers(engine_list* list) {
    if (!list) return;
    for (int32_t i = 0; i < list->count && i < kEngineListCapacity; ++i) {
        engine* e = list->engines[i];
        if (!e || e->userid < 0 || e->id < 0) continue;
        char path[PATH_SIZE];
        formatEngineChamberPath(path, mMntPath, e->id);
        makeEngineChamberDirectory(*this, path);
        SLOGE("Adding chamber %s", path);
        dump_engine("adding-chamber", e);
        if (e->flags & kEngineHasChamber) {
            registerChamber(e->id, path);
        } else {
            // The unclosed bracket is part of the known message.
            SLOGE("engine->flags[%08x] doesn't contain [%08x", e->flags, kEngineHasChamber);
        }
    }
}

int Partition::preparePartition() {
    if (mType != PARTITION_CE_SDCARD) return 0;
    for (const char* root : kViewRoots) {
        pelk::formatPath(mWorkPath, "%s/%d", root, mUserId);
        // Every view gets 0771 whatever the area's own mode is.
        if (makeDirectory(mWorkPath, kViewMode, mUid, mGid) != 0) return -1;
    }
    return 0;
}

void Partition::arrangeStoragePermission() {
    if (mType != PARTITION_CE_SDCARD) return;
    struct stat st;
    if (lstat(mSrcPath, &st) != 0) return;
    pelk::UniqueFd dir(open(mSrcPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir.ok()) return;
    // Failures are ignored: the mount goes ahead with what is there.
    int ignored = fchmod(dir.get(), mMode);
    ignored = fchown(dir.get(), mUid, mGid);
    (void)ignored;
}
