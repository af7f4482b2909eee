// The read-only questions about the state of storage: which areas are
// mounted, which view of the emulated storage a process sees, and whose CE
// storage is unlocked.
#define LOG_TAG "pelkd"

#include <errno.h>
#include <log/log.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <memory>

#include "base/UniqueHandle.h"
#include "manager/Pelk.h"
#include "partition/Partition.h"
#include "process/ProcFs.h"

namespace {

// Mount mode codes: which view of the emulated storage a process sees.
enum MountMode { MODE_NONE = 0, MODE_DEFAULT = 1, MODE_READ = 2, MODE_WRITE = 3 };

int modeOfRoot(const char* root) {
    if (strcmp(root, "/runtime/default") == 0) return MODE_DEFAULT;
    if (strcmp(root, "/runtime/read") == 0) return MODE_READ;
    if (strcmp(root, "/runtime/write") == 0) return MODE_WRITE;
    return MODE_NONE;
}

// Opens a mount table of /proc; tableName ("mounts", "mountinfo") names it
// in the error line. A process that has gone is only a warning: walks over
// /proc race with exiting processes all the time.
pelk::UniqueFile openProcTable(const char* path, const char* tableName) {
    pelk::UniqueFile table(fopen(path, "re"));
    if (!table) {
        if (errno == ENOENT) {
            SLOGW("No file to open, skip..");
        } else {
            SLOGE("Error opening /proc/%s (%s)", tableName, strerror(errno));
        }
    }
    return table;
}

// True when every area of the list is mounted for the user; stops at the
// first one that is not. Each area is built and dropped on its own so that
// its record logs as it comes and goes.
template <size_t N>
bool allMounted(int userId, const int32_t (&types)[N]) {
    for (int32_t type : types) {
        std::unique_ptr<Partition> area(new Partition(userId, type, nullptr, false));
        if (!area->isMounted()) return false;
    }
    return true;
}

}  // namespace

int Pelk::isMountedInternal(const char* pid, const char* mountPoint) {
    char path[1024] = {0};
    if (pid) {
        snprintf(path, sizeof(path), "/proc/%s/mounts", pid);
    } else {
        snprintf(path, sizeof(path), "/proc/mounts");
    }
    pelk::UniqueFile table = openProcTable(path, "mounts");
    if (!table) return 0;
    return pelk::mountTableHas(table.get(), mountPoint) ? 1 : 0;
}

int Pelk::getMountMode(const char* pid) {
    char path[1024] = {0};
    snprintf(path, sizeof(path), "/proc/%s/mountinfo", pid);
    pelk::UniqueFile table = openProcTable(path, "mountinfo");
    if (!table) return MODE_NONE;
    int mode = MODE_NONE;
    pelk::forEachMountLine(table.get(), [&mode](const char* line) {
        int id = 0;
        int parent = 0;
        char device[256] = {0};
        char root[256] = {0};
        char point[256] = {0};
        char options[256] = {0};
        if (sscanf(line, "%d %d %255s %255s %255s %255s\n", &id, &parent, device, root, point, options) < 5) {
            return false;
        }
        if (strcmp(point, "/storage") != 0) return false;
        mode = modeOfRoot(root);
        return true;
    });
    return mode;
}

bool Pelk::isMounted(int userId) {
    bool mounted = allMounted(userId, Partition::LIST_DE_STORAGE);
    // Once CE is unlocked only the CE areas decide, whatever DE says.
    if (isCeStorageAvailable(userId)) mounted = allMounted(userId, Partition::LIST_CE_STORAGE);
    return mounted;
}

void Pelk::updateStatusMap(int userId, bool unlocked, bool remove) {
    if (remove) {
        isUnlockedByCe.erase(userId);
    } else {
        isUnlockedByCe[userId] = unlocked;
    }
}

bool Pelk::isCeStorageAvailable(int userId) {
    auto it = isUnlockedByCe.find(userId);
    return it != isUnlockedByCe.end() && it->second;
}

int Pelk::isFileExist(const char* path, int) {
    // The raw stat() result: callers test for 0 as "exists".
    struct stat st;
    return stat(path, &st);
}
