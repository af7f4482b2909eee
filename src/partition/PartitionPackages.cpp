// Per-package directories: copying the set of package folders of one user's
// data area into another user's, and where a package's data lives.
#define LOG_TAG "pelkd"

#include <chamber/chamber.h>
#include <dirent.h>
#include <log/log.h>
#include <persona/persona.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/DirEntry.h"
#include "base/UniqueHandle.h"
#include "partition/Partition.h"
#include "partition/PartitionFormat.h"

namespace {

constexpr int kInvalid = -EINVAL;
constexpr int kPerUserRange = 100000;
constexpr int kNotPackage = -2;

// Outcome of one source entry: 0 go on, -1 end the sync with failure.
int createPackageDirectory(int user, const char* srcEntry, const char* dstEntry, const struct stat& src) {
    const int appId = static_cast<int>(src.st_uid % kPerUserRange);
    const int newUid = appId + user * kPerUserRange;
    SLOGI("%s src [uid:%d gid:%d mode:%d appId:%d]", "syncPkgDir", static_cast<int>(src.st_uid),
          static_cast<int>(src.st_gid), static_cast<int>(src.st_mode), appId);
    SLOGI("Creating pkg directory %s [uid:%d/gid:%d] appId:%d", dstEntry, newUid, newUid, appId);
    if (mkdir(dstEntry, src.st_mode) != 0 && errno != EEXIST) {
        SLOGE("mkdir failed for %s, %s\n", dstEntry, strerror(errno));
        return -1;
    }
    if (chown(dstEntry, newUid, newUid) != 0) {
        SLOGE("Failed to chown for %s :: Error\n", dstEntry);
        return -1;
    }
    SLOGI(" converting category >>>> %d ", user);
    if (!isZanthUser(user)) return 0;
    int category = setCategory(user, dstEntry);
    if (category == kNotPackage) {
        // A folder the package manager knows nothing of is not carried over.
        SLOGW("Not package or no information.. %s", srcEntry);
        rmdir(dstEntry);
        return 0;
    }
    return category == 0 ? 0 : -1;
}

}  // namespace

int Partition::syncPkgDir(Partition* other) {
    // Only a CE data area is a source of package folders.
    if (!other || other->mType != PARTITION_CE_DATA) return kInvalid;
    const char* source = other->mMntPath;
    const char* target = mMntPath;
    const int user = mUserId;
    SLOGI("syncPkgDir %s => %s", source, target);

    struct stat st;
    if (lstat(source, &st) != 0) {
        const int err = errno;
        SLOGI("source : <%s> is a dangling link: ", source);
        SLOGE("returned error <%d> errno %d %s", 0, err, strerror(err));
        SLOGI("Link pass\n");
        return 0;
    }
    if (!S_ISLNK(st.st_mode) && !S_ISDIR(st.st_mode)) {
// The known line spells the mode "%0.8x"; the ignored '0' flag is part of it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
        SLOGI("syncPkgDir %s => %s MODE error %0.8x", source, target, static_cast<unsigned int>(st.st_mode));
#pragma GCC diagnostic pop
        return kInvalid;
    }

    SLOGI("source : <%s> opening dir ", source);
    pelk::UniqueDir dir(opendir(source));
    if (!dir) return -1;
    SLOGI("source : <%s> reading dir ", source);

    while (dirent* entry = readdir(dir.get())) {
        const char* name = entry->d_name;
        if (pelk::isDotOrDotDot(name)) continue;
        char srcEntry[PATH_SIZE];
        char dstEntry[PATH_SIZE];
        // A cut path would name some other folder: such an entry is left out.
        // An empty target (an area of unknown type) gives empty target
        // entries: missing, and never made at the root.
        if (!pelk::formatPath(srcEntry, "%s/%s", source, name) || !pelk::formatBelow(dstEntry, target, "/%s", name))
            continue;
        struct stat srcSt = {};
        struct stat dstSt = {};
        const int srcResult = lstat(srcEntry, &srcSt);
        const int dstResult = lstat(dstEntry, &dstSt);
        // A listed entry that is gone by the time it is looked at is judged
        // by its listing, so its copy in the target is removed.
        const bool srcIsDir = srcResult == 0 ? S_ISDIR(srcSt.st_mode) : entry->d_type == DT_DIR;
        if (!srcIsDir) {
            SLOGI(" Ignoring files %s ==> %s (%d,%d) ", srcEntry, dstEntry, srcResult, dstResult);
            continue;
        }
        // The misspelling is the line log readers know.
        SLOGI(" compairing %s ==> %s (%d,%d) ", srcEntry, dstEntry, srcResult, dstResult);
        if (srcResult == 0 && dstResult != 0) {
            if (createPackageDirectory(user, srcEntry, dstEntry, srcSt) != 0) return -1;
        } else if (srcResult != 0 && dstResult == 0) {
            SLOGI("Deleting pkg directory : %s [user:%d]", dstEntry, user);
            if (clearDirectory(dstEntry, 1, nullptr) != 0) {
                const int err = errno;
                SLOGE("remove directory %s failed : %d(%s)", dstEntry, err, strerror(err));
                return -1;
            }
        }
    }
    return 0;
}

void Partition::getPkgPath(const char* pkg, char* out, int size) {
    if (!out || size <= 0) return;
    const size_t cap = static_cast<size_t>(size);
    // An area of unknown type has no path, so no package path lies in it.
    if (mMntPath[0] == '\0') {
        out[0] = '\0';
        return;
    }
    // The sensitive-data areas are device-wide, so their per-user folder is
    // part of the path.
    if (mType == PARTITION_MIREL_USER || mType == PARTITION_MIREL_MEDIA)
        snprintf(out, cap, "%s/%d/", mMntPath, mUserId);
    else
        snprintf(out, cap, "%s/", mMntPath);
    // Only the user areas keep a folder per package; the media areas keep
    // app data under "Android/data/".
    const bool perPackage = mType == PARTITION_MIREL_USER || mType == PARTITION_CE_DATA;
    const size_t len = strlen(out);
    snprintf(out + len, cap - len, "%s", perPackage ? pkg : "Android/data/");
}
