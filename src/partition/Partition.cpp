// Construction of a Partition: the table that fixes where every kind of
// container storage lives on the device, and the record's log lines.
#define LOG_TAG "pelkd"

#include "partition/Partition.h"

#include <crypt/crypt.h>
#include <log/log.h>
#include <private/android_filesystem_config.h>
#include <stdio.h>

namespace {

// One row of the layout. Per-user areas append "/<user>" to both bases;
// device-wide areas use the bases as they stand. A row with an FBE mount
// base moves its mount path there when the device has file-based encryption.
struct AreaLayout {
    int32_t type;
    const char* srcBase;
    const char* mntBase;
    const char* fbeMntBase;  // null: the mount path does not depend on FBE
    bool perUser;
    uint32_t uid;
    uint32_t gid;
    uint32_t mode;
};

constexpr uint32_t kSystem = AID_SYSTEM;
constexpr uint32_t kMediaRw = AID_MEDIA_RW;
constexpr uint32_t kMisc = AID_MISC;

const AreaLayout kLayout[] = {
    {PARTITION_CE_DATA, "/data/zanth/data", "/data/user", nullptr, true, kSystem, kSystem, 0771},
    {PARTITION_CE_SDCARD, "/data/zanth/sdcard", "/data/zanth/sdcard", "/mnt/runtime/default/emulated", true, kMediaRw,
     kMediaRw, 0770},
    {PARTITION_PRIVATE_MODE, "/data/privatemode", "/data/privatemode", nullptr, false, kSystem, kSystem, 0771},
    {PARTITION_MIREL_USER, "/data/zanth/secure_fs/enc_user", "/data/enc_user", nullptr, false, kSystem, kSystem, 0771},
    {PARTITION_MIREL_MEDIA, "/data/zanth/secure_fs/enc_media", "/data/zanth/secure_fs/enc_media",
     "/mnt/shell/enc_emulated", false, kSystem, kSystem, 0771},
    {PARTITION_SDCARDFS_DEFAULT, "/mnt/zanth/default/zanth-emulated", "/mnt/zanth/default/emulated", nullptr, true,
     kSystem, kSystem, 0771},
    {PARTITION_SDCARDFS_READ, "/mnt/zanth/read/zanth-emulated", "/mnt/zanth/read/emulated", nullptr, true, kSystem,
     kSystem, 0771},
    {PARTITION_SDCARDFS_WRITE, "/mnt/zanth/write/zanth-emulated", "/mnt/zanth/write/emulated", nullptr, true, kSystem,
     kSystem, 0771},
    {PARTITION_TMP_SDCARD, "/data/zanth/tmp_sdcard", "/mnt/zanth", nullptr, false, kSystem, kSystem, 0771},
    {PARTITION_PRIVATE_DEFAULT, "/mnt/shell/private_default", "/mnt/shell/privatemode/default", nullptr, false, kSystem,
     kSystem, 0771},
    {PARTITION_PRIVATE_READ, "/mnt/shell/private_read", "/mnt/shell/privatemode/read", nullptr, false, kSystem, kSystem,
     0771},
    {PARTITION_PRIVATE_WRITE, "/mnt/shell/private_write", "/mnt/shell/privatemode/write", nullptr, false, kSystem,
     kSystem, 0771},
    {PARTITION_DE_DATA, "/data/zanth/data_de", "/data/user_de", nullptr, true, kSystem, kSystem, 0771},
    {PARTITION_DE_SYSTEM, "/data/zanth/system_de", "/data/system_de", nullptr, true, kSystem, kSystem, 0770},
    {PARTITION_DE_MISC, "/data/zanth/misc_de", "/data/misc_de", nullptr, true, kSystem, kMisc, 01771},
    {PARTITION_CE_SYSTEM, "/data/zanth/system_ce", "/data/system_ce", nullptr, true, kSystem, kSystem, 0770},
    {PARTITION_CE_MISC, "/data/zanth/misc_ce", "/data/misc_ce", nullptr, true, kSystem, kMisc, 01771},
};

const AreaLayout* findLayout(int32_t type) {
    for (const AreaLayout& row : kLayout)
        if (row.type == type) return &row;
    return nullptr;
}

void formatAreaPath(char* out, const char* base, bool perUser, int32_t userId) {
    if (perUser)
        snprintf(out, Partition::PATH_SIZE, "%s/%d", base, userId);
    else
        snprintf(out, Partition::PATH_SIZE, "%s", base);
}

}  // namespace

Partition::Partition(int userId, int type, const char* /*unused*/, bool mirelSupported) {
    setDefaults(userId, type, mirelSupported);
    fillFromTable();
    logCreated();
}

Partition::Partition(int userId, const char* srcPath, const char* mntPath, bool mirelSupported) {
    // Explicitly placed areas are always reported as the private-mode kind.
    setDefaults(userId, PARTITION_PRIVATE_MODE, mirelSupported);
    snprintf(mSrcPath, sizeof(mSrcPath), "%s", srcPath ? srcPath : "");
    snprintf(mMntPath, sizeof(mMntPath), "%s", mntPath ? mntPath : "");
    logCreated();
}

Partition::~Partition() { SLOGD("deleting Partition object."); }

void Partition::setDefaults(int userId, int type, bool mirelSupported) {
    mUserId = userId;
    mType = type;
    mUid = kSystem;
    mGid = kSystem;
    mMode = 0771;
    mMirelSupported = mirelSupported;
    mWorkPath[0] = '\0';
    mSrcPath[0] = '\0';
    mMntPath[0] = '\0';
}

// An unknown type keeps empty paths and the defaults: callers treat such an
// area as one whose paths do not exist.
void Partition::fillFromTable() {
    const AreaLayout* row = findLayout(mType);
    if (!row) return;
    formatAreaPath(mSrcPath, row->srcBase, row->perUser, mUserId);
    // The encryption mode is asked afresh for every area that depends on it.
    const char* mntBase = row->mntBase;
    if (row->fbeMntBase && isFBESupported() != 0) mntBase = row->fbeMntBase;
    formatAreaPath(mMntPath, mntBase, row->perUser, mUserId);
    mUid = row->uid;
    mGid = row->gid;
    mMode = row->mode;
}

void Partition::logCreated() {
    SLOGD("Partition obj created");
    dump();
}

void Partition::dump() {
    SLOGD("Partition::dump============== %d", mUserId);
    // The label only tells CE app data apart from everything else.
    const char* label = mType == PARTITION_CE_DATA ? "PRIVATE-DATA" : "INTERNAL-SDCARD";
    SLOGD("Partition::mType > %s mSrcPath > %s mMntPath > %s", label, mSrcPath, mMntPath);
    SLOGD("Partition::MIREL > %s", mMirelSupported ? "supported" : "not supported");
}
