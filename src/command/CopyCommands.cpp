// Commands served by the manager's copy engine: directory scans, whole and
// chunked copies, and the owner and mode changes of a migration.
#include <stdlib.h>

#include "command/CommandListenerEnterprise.h"
#include "command/CommandReply.h"

using pelk::countMatches;
using pelk::replyFailed;
using pelk::replyWrongCount;

// ---- scan_dir ----
CommandListenerEnterprise::scanDirCmd::scanDirCmd() : PelkdCommand("scan_dir") {}

int CommandListenerEnterprise::scanDirCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    pelk::copyWord(mPath, sizeof(mPath), argv[1]);
    mNumber = atol(argv[2]);
    return 0;
}

int CommandListenerEnterprise::scanDirCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // The copy engine is not in this build yet.
    return replyFailed(cli);
}

// ---- copy ----
CommandListenerEnterprise::copyCmd::copyCmd() : PelkdCommand("copy") {}

int CommandListenerEnterprise::copyCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    pelk::copyWord(mSubCommand, sizeof(mSubCommand), argv[1]);
    pelk::copyWord(mSrcPath, sizeof(mSrcPath), argv[2]);
    mSrcId = atoi(argv[3]);
    pelk::copyWord(mDstPath, sizeof(mDstPath), argv[4]);
    mDstId = atoi(argv[5]);
    mFlag = static_cast<unsigned int>(atoi(argv[6]));
    mOffset = strtoll(argv[7], nullptr, 0);
    mLength = strtol(argv[8], nullptr, 0);
    mSize = strtoll(argv[9], nullptr, 0);
    return 0;
}

int CommandListenerEnterprise::copyCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // The copy engine is not in this build yet.
    return replyFailed(cli);
}

// ---- change_permission_migration ----
CommandListenerEnterprise::changePermissionMigrationCmd::changePermissionMigrationCmd()
    : PelkdCommand("change_permission_migration") {}

int CommandListenerEnterprise::changePermissionMigrationCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    pelk::copyWord(mPath, sizeof(mPath), argv[1]);
    mUid = atoi(argv[2]);
    mGid = atoi(argv[3]);
    mMode = atoi(argv[4]);  // decimal on the wire: 0755 arrives as 493
    return 0;
}

int CommandListenerEnterprise::changePermissionMigrationCmd::runCommand(SocketClient* cli, int argc, char** argv,
                                                                         Pelk*) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // The copy engine is not in this build yet.
    return replyFailed(cli);
}
