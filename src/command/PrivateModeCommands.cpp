// The private-mode commands: mount, unmount and re-key the owner's private
// store. Passwords never reach the log and are wiped from the command's
// fields once the line has been served.
#include <stdlib.h>

#include "command/CommandListenerPrivate.h"
#include "command/CommandLog.h"
#include "command/CommandReply.h"
#include "manager/PrivatePartitionManager.h"
#include "base/Secret.h"

using pelk::countMatches;
using pelk::replyWrongCount;

// ---- mount_privatemode ----
CommandListenerPrivate::mountPrivateModeCmd::mountPrivateModeCmd() : FrameworkCommand("mount_privatemode") {}

int CommandListenerPrivate::mountPrivateModeCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mUserId = atoi(argv[1]);
    pelk::copyWord(mFirstPath, sizeof(mFirstPath), argv[2]);
    pelk::copyWord(mSecondPath, sizeof(mSecondPath), argv[3]);
    pelk::copyWord(mPassword, sizeof(mPassword), argv[4]);
    return 0;
}

int CommandListenerPrivate::mountPrivateModeCmd::runCommand(SocketClient* cli, int argc, char** argv) {
    PrivatePartitionManager::Instance();
    dumpArgs(pelk::leadingWords(argc, 4), argv);
    int parsed = parseCmd(argc, argv);
    pelk::wipe(mPassword, sizeof(mPassword));
    if (parsed != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // The private-mode mount of the manager is not in this build yet.
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
    PrivatePartitionManager::Instance();
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // The private-mode unmount of the manager is not in this build yet.
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
    dumpArgs(pelk::leadingWords(argc, 2), argv);
    int parsed = parseCmd(argc, argv);
    pelk::wipe(mOldPassword, sizeof(mOldPassword));
    pelk::wipe(mNewPassword, sizeof(mNewPassword));
    if (parsed != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // The private-mode password change of the manager is not in this build yet.
    return pelk::replyFailed(cli);
}
