// "mount", "unmount" and "premount": bring a container's storage up with the
// key system_server hands over, take it down again, and pre-mount at boot
// what the stored keys allow.
#define LOG_TAG "pelkd"

#include <cutils/fs.h>
#include <log/log.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <crypt/crypt.h>
#include <selinux/android.h>

#include "base/Secret.h"
#include "command/CommandListenerEnterprise.h"
#include "command/CommandLog.h"
#include "command/CommandReply.h"
#include "manager/Pelk.h"
#include "partition/Partition.h"
#include "tools/Base64.h"

using pelk::countMatches;
using pelk::replyFailed;
using pelk::replySuccess;
using pelk::replyWrongCount;
using pelk::sendReply;

namespace {

// Types of the "mount" and "unmount" lines.
enum MountType { TYPE_CE = 1, TYPE_MIREL = 2, TYPE_DE = 3, TYPE_CE_NO_UNDO = 4 };

// Every storage key is 32 bytes.
constexpr int kKeyBytes = 32;
// 128 base64 characters decode to at most 96 bytes.
constexpr int kDecodedMax = 96;
// Label restoring of a new directory: skip the hash check, cross filesystems.
constexpr unsigned int kRestoreconFlags = 0x90;

// Makes "<base>/<user>" with this mode when it is missing; the label is
// restored only where the caller asks for it.
void ensureUserDirectory(const char* base, int userId, mode_t mode, bool restoreLabel) {
    char path[Partition::PATH_SIZE] = {0};
    snprintf(path, sizeof(path), "%s/%d", base, userId);
    struct stat st;
    if (stat(path, &st) == 0) return;
    if (fs_prepare_dir(path, mode, 0, 0) != 0) {
        SLOGE("Failed to prepare %s", path);
        return;
    }
    if (restoreLabel) selinux_android_restorecon_internal(path, userId, kRestoreconFlags);
}

// The key of a "mount" line: its base64 text decoded, the first 32 bytes
// and a NUL after them in key. A text that decodes to fewer than 32 bytes
// is refused: padding it with zeros would mount with a weaker key than the
// one system_server meant.
bool decodeKey(const char* text, char* key, size_t keySize) {
    pelk::SecretBuffer<kDecodedMax> decoded;
    int decodedLen = 0;
    base64d(text, decoded.data(), &decodedLen);
    memset(key, 0, keySize);
    if (decodedLen < kKeyBytes) {
        SLOGE("mount key too short (%d bytes)", decodedLen);
        return false;
    }
    memcpy(key, decoded.data(), kKeyBytes);
    return true;
}

}  // namespace

// ---- mount ----
CommandListenerEnterprise::mountCmd::mountCmd() : PelkdCommand("mount") {}

int CommandListenerEnterprise::mountCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mUserId = atoi(argv[1]);
    pelk::copyWord(mKey, sizeof(mKey), argv[2]);
    mFlag = atoi(argv[3]);
    mType = atoi(argv[4]);
    return 0;
}

int CommandListenerEnterprise::mountCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) {
    // The key is the third word: only the command word and the user are logged.
    dumpArgs(pelk::leadingWords(argc, 2), argv);
    // Whatever path leaves this command, the key text and the key go with it.
    pelk::WipeOnExit wipeKey(mKey, sizeof(mKey));
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // Mounting is this command's work only while on-device encryption runs.
    if (isOdeInProgress() == 0) return replyFailed(cli);
    if (isFBESupported()) {
        if (mType != TYPE_MIREL) {
            sendReply(cli, pelk::REPLY_FAILED, "Not allowed to mount partition on FBE devices");
            return -1;
        }
        return pelk->mountStorageMirel(nullptr) == 0 ? replySuccess(cli) : replyFailed(cli);
    }
    if (mType == TYPE_CE || mType == TYPE_DE) SLOGD("mounting Zanth container partitions");
    if (mType == TYPE_MIREL) SLOGD("mounting device wide partitions");

    pelk::SecretBuffer<sizeof(mKey)> key;
    if (!decodeKey(mKey, key.chars(), key.size())) return replyFailed(cli);

    int rc = 0;
    switch (mType) {
        case TYPE_CE:
        case TYPE_CE_NO_UNDO:
            rc = pelk->mountStorageCe(mUserId, key.chars(), true, mFlag != 0, true);
            if (rc == 0) ensureUserDirectory("/storage/emulated", mUserId, 0755, true);
            break;
        case TYPE_MIREL:
            rc = pelk->mountStorageMirel(key.chars());
            if (rc == 0) {
                Partition media(0, 'i', nullptr, false);
                ensureUserDirectory(media.mMntPath, 0, 0711, false);
            }
            break;
        case TYPE_DE: rc = pelk->mountStorageDe(mUserId, key.chars(), true, mFlag != 0); break;
        default:
            // Any other type is acknowledged with nothing mounted; callers
            // rely on it.
            return replySuccess(cli);
    }
    if (rc == 0) return replySuccess(cli);
    // Undo what the failed mount may have left; type 4 deliberately undoes
    // nothing.
    if (mType == TYPE_DE) pelk->unmountStorageDe(mUserId);
    if (mType == TYPE_MIREL) pelk->unmountStorageMirel();
    if (mType == TYPE_CE) pelk->unmountStorageCe(mUserId);
    return replyFailed(cli);
}

// ---- unmount ----
CommandListenerEnterprise::unmountCmd::unmountCmd() : PelkdCommand("unmount") {}

int CommandListenerEnterprise::unmountCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mUserId = atoi(argv[1]);
    mType = atoi(argv[2]);
    return 0;
}

int CommandListenerEnterprise::unmountCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    if (isFBESupported()) {
        sendReply(cli, pelk::REPLY_FAILED, "Not allowed to unmount partition on FBE devices");
        return -1;
    }
    if (mType == TYPE_CE || mType == TYPE_DE) SLOGD("unmounting Zanth container partitions");
    // Logged at ERROR on purpose, as log readers expect it.
    if (mType == TYPE_MIREL) SLOGE("unmounting device wide partitions");

    int rc;
    if (mType == TYPE_DE) {
        rc = pelk->unmountStorageDe(mUserId);
    } else if (mType == TYPE_CE) {
        rc = pelk->unmountStorageCe(mUserId);
    } else {
        // Every other type, unknown ones included, takes the device-wide
        // areas down.
        rc = pelk->unmountStorageMirel();
    }
    return rc == 0 ? replySuccess(cli) : replyFailed(cli);
}

// ---- premount ----
CommandListenerEnterprise::premountCmd::premountCmd() : PelkdCommand("premount") {}

int CommandListenerEnterprise::premountCmd::parseCmd(int argc, char**) {
    return countMatches(argc, mExpectedArgc) ? 0 : -1;
}

int CommandListenerEnterprise::premountCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // Without on-device encryption running there is nothing to pre-mount,
    // which counts as success.
    if (isOdeInProgress() != 0 && pelk->preMount() != 0) {
        SLOGE("Pre-Mount ERROR");
        return replyFailed(cli);
    }
    return replySuccess(cli);
}
