// The private-mode commands: mount, unmount and re-key the owner's private
// store. Passwords never reach the log and are wiped from the command's
// fields once the line has been served, whatever its outcome.
#define LOG_TAG "pelkd"

#include <log/log.h>
#include <stdlib.h>
#include <unistd.h>

#include "base/Secret.h"
#include "command/CommandListenerPrivate.h"
#include "command/CommandLog.h"
#include "command/CommandReply.h"
#include "manager/PrivateModePaths.h"
#include "manager/PrivatePartitionManager.h"
#include "partition/Partition.h"

using pelk::countMatches;
using pelk::replyWrongCount;

namespace {

// Words of each line that may be logged: the paths of a mount, but no password.
const int kMountLoggedWords = 4;
const int kChangeLoggedWords = 2;
// The area that stands for the media link when it is taken down: a kind
// without paths of its own, given the link's path.
constexpr int kMediaLinkType = 'd';

}  // namespace

// ---- mount_privatemode ----
CommandListenerPrivate::mountPrivateModeCmd::mountPrivateModeCmd() : FrameworkCommand("mount_privatemode") {}

int CommandListenerPrivate::mountPrivateModeCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mUserId = atoi(argv[1]);
    // The paths are kept for the record; the area's own layout decides.
    pelk::copyWord(mFirstPath, sizeof(mFirstPath), argv[2]);
    pelk::copyWord(mSecondPath, sizeof(mSecondPath), argv[3]);
    pelk::copyWord(mPassword, sizeof(mPassword), argv[4]);
    return 0;
}

int CommandListenerPrivate::mountPrivateModeCmd::runCommand(SocketClient* cli, int argc, char** argv) {
    PrivatePartitionManager* manager = PrivatePartitionManager::Instance();
    dumpArgs(pelk::leadingWords(argc, kMountLoggedWords), argv);
    pelk::WipeOnExit wipePassword(mPassword, sizeof(mPassword));
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    Partition partition(mUserId, PARTITION_PRIVATE_MODE, nullptr, false);
    if (manager->ecryptfsMount(&partition, mPassword) == 0) return pelk::replySuccess(cli);
    SLOGE("Mount ERROR [%s]", partition.mMntPath);
    // Whatever part of the sequence got done is taken down again.
    manager->unmount(&partition);
    return pelk::replyFailed(cli);
}

// ---- unmount_privatemode ----
CommandListenerPrivate::unmountPrivateModeCmd::unmountPrivateModeCmd() : FrameworkCommand("unmount_privatemode") {}

int CommandListenerPrivate::unmountPrivateModeCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mUserId = atoi(argv[1]);
    pelk::copyWord(mPath, sizeof(mPath), argv[2]);
    return 0;
}

int CommandListenerPrivate::unmountPrivateModeCmd::runCommand(SocketClient* cli, int argc, char** argv) {
    PrivatePartitionManager* manager = PrivatePartitionManager::Instance();
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    Partition mediaLink(mUserId, kMediaLinkType, nullptr, false);
    Partition store(mUserId, PARTITION_PRIVATE_MODE, nullptr, false);
    pelk::copyWord(mediaLink.mMntPath, sizeof(mediaLink.mMntPath), pelk::kPrivateMediaLink);

    // The link goes first; while it is held the store stays mounted, views
    // and all, so nothing is cut from under the media side.
    if (manager->unmount(&mediaLink) != 0) {
        SLOGE("Unmount ERROR [%s]", pelk::kPrivateMediaLink);
        return pelk::replyFailed(cli);
    }
    if (rmdir(pelk::kPrivateMediaLink) != 0) SLOGE("Failed to remove media link");
    if (manager->unmount(&store) == 0) return pelk::replySuccess(cli);
    SLOGE("Unmount ERROR [%s]", store.mMntPath);
    return pelk::replyFailed(cli);
}

// ---- privatemode_change_password ----
CommandListenerPrivate::chPrivateModepasswdCmd::chPrivateModepasswdCmd()
    : FrameworkCommand("privatemode_change_password") {}

int CommandListenerPrivate::chPrivateModepasswdCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mUserId = atoi(argv[1]);
    pelk::copyWord(mOldPassword, sizeof(mOldPassword), argv[2]);
    pelk::copyWord(mNewPassword, sizeof(mNewPassword), argv[3]);
    return 0;
}

int CommandListenerPrivate::chPrivateModepasswdCmd::runCommand(SocketClient* cli, int argc, char** argv) {
    dumpArgs(pelk::leadingWords(argc, kChangeLoggedWords), argv);
    pelk::WipeOnExit wipeOld(mOldPassword, sizeof(mOldPassword));
    pelk::WipeOnExit wipeNew(mNewPassword, sizeof(mNewPassword));
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    if (PrivatePartitionManager::Instance()->changePassword(mUserId, mOldPassword, mNewPassword) == 0)
        return pelk::replySuccess(cli);
    SLOGE("changePassword ERROR");
    return pelk::replyFailed(cli);
}
