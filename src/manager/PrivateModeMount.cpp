// The private-mode mount: the owner's store is mounted through the key file
// that its password unwraps (made on first use), then shown through three
// sdcard views, and the writable view is bound at the media link that the
// platform's media side looks for.
#define LOG_TAG "pelkd"

#include <crypt/crypt.h>
#include <cutils/fs.h>
#include <errno.h>
#include <log/log.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <private/android_filesystem_config.h>

#include "manager/KeyFileCalls.h"
#include "manager/MountCalls.h"
#include "manager/MountPreCheck.h"
#include "manager/PrivateModePaths.h"
#include "manager/PrivatePartitionManager.h"
#include "partition/Partition.h"

namespace {

// The library's mount mode of the private-mode type.
constexpr int kPrivateMountMode = 3;
constexpr mode_t kViewMode = 0700;
constexpr mode_t kMediaLinkMode = 0750;
constexpr uid_t kSystemId = AID_SYSTEM;

using pelk::kPrivateMediaLink;
using pelk::kPrivateViews;
using pelk::kPrivateWritableView;

// Makes the view directories the sdcard program mounts on. Only a directory
// made here is given to the system user; one that exists keeps its owner.
void makeViewDirectories() {
    for (const char* view : kPrivateViews) {
        if (mkdir(view, kViewMode) == 0 && chown(view, kSystemId, kSystemId) != 0)
            SLOGW("Failed to chown %s (%s)", view, strerror(errno));
    }
}

}  // namespace

int PrivatePartitionManager::ecryptfsMount(Partition* partition, const char* password) {
    // ERROR on purpose: every mount shows on every build.
    SLOGE(" mounting...\n");
    switch (pelk::checkAreaToMount(partition)) {
        case pelk::MountPreCheck::Refused: return -1;
        case pelk::MountPreCheck::MountedAlready: return 0;
        case pelk::MountPreCheck::GoOn: break;
    }
    char keyFile[KEY_PATH_SIZE];
    keyFilePath(partition->mUserId, keyFile);
    // First use: the key file is made with the password of this very mount.
    // A failure shows up as the verification failure just below.
    if (isFileExist(keyFile, 0) != 0) createKey(partition->mUserId, password);
    if (pelk::verifyKeyFilePassword(keyFile, password) != 0) {
        SLOGE("verify failed :: Error\n");
        return -1;
    }

    SLOGI("ecryptfs mounting...");
    const int flag = partition->mMirelSupported ? 1 : 0;
    int rc = mount_ecryptfs_withpwd(password, partition->mSrcPath, partition->mMntPath, kPrivateMountMode, 0, flag,
                                    partition->mUserId, -1, partition->mType);
    if (rc != 0) return rc;

    makeViewDirectories();
    if (mountSdcardfs(partition) == -1) return -1;
    if (fs_prepare_dir(kPrivateMediaLink, kMediaLinkMode, kSystemId, kSystemId) != 0) {
        SLOGE("Failed to prepare media link");
        return -1;
    }
    if (pelk::bindMount(kPrivateWritableView, kPrivateMediaLink) != 0) {
        SLOGE("Failed to bind media link");
        return -1;
    }
    return 0;
}
