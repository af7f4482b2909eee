// Commands served by the manager's copy engine: directory scans, whole and
// chunked copies, and the owner and mode changes of a migration.
#define LOG_TAG "pelkd"

#include <log/log.h>
#include <stdlib.h>
#include <string.h>

#include <fileops/CopyFileImpl.h>

#include "command/CommandListenerEnterprise.h"
#include "command/CommandReply.h"
#include "manager/Pelk.h"
#include "partition/Partition.h"

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

static_assert(sizeof(CommandListenerEnterprise::scanDirCmd::mScanText) == CopyFileImpl::SCAN_TEXT_SIZE,
              "the scan fills the whole text");

int CommandListenerEnterprise::scanDirCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    int result = pelk->scanDir(mPath, mScanText, mNumber);
    if (result == 1) {
        pelk::replySuccess(cli);
    } else if (result == 0) {
        pelk::sendLongReply(cli, pelk::REPLY_ON_GOING, "%s", mScanText);
    } else {
        replyFailed(cli);
    }
    return result;
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

int CommandListenerEnterprise::copyCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    if (mDstId != 0 && Partition::isSdcardPath(mDstPath)) {
        // Built and dropped at once: its construction is all the target's
        // emulated view needs here.
        Partition view(mDstId, PARTITION_SDCARDFS_DEFAULT, nullptr, true);
    }
    if (strcmp(mSubCommand, "whole") == 0) return runWhole(cli, pelk);
    if (strcmp(mSubCommand, "chunk") == 0) {
        SLOGI("copy (chunk) %s -> %s [o:%llu] [l:%lu] [s:%llu]", mSrcPath, mDstPath,
              static_cast<unsigned long long>(mOffset), static_cast<unsigned long>(mLength),
              static_cast<unsigned long long>(mSize));
        return pelk::replyChunkResult(
            cli, pelk->copyChunk(mSrcPath, mSrcId, mDstPath, mDstId, mOffset, mLength, mSize, mFlag));
    }
    if (strcmp(mSubCommand, "cancel") == 0) return runCancel(cli, pelk);
    pelk::sendReply(cli, pelk::REPLY_BAD_ARGS, "unknown sub-command");
    return -1;
}

int CommandListenerEnterprise::copyCmd::runWhole(SocketClient* cli, Pelk* pelk) {
    int result = pelk->copy(mSrcPath, mSrcId, mDstPath, mDstId, mFlag);
    if (result == 0) return pelk::replySuccess(cli);
    SLOGE("copy ERROR [from_file=%s from_id=%d to_file=%s to_id=%d flag=%x]", mSrcPath, mSrcId, mDstPath, mDstId,
          mFlag);
    return pelk::replyFailure(cli, result);
}

int CommandListenerEnterprise::copyCmd::runCancel(SocketClient* cli, Pelk* pelk) {
    SLOGI("copy (cancel) %s -> %s [s:%llu]", mSrcPath, mDstPath, static_cast<unsigned long long>(mSize));
    int result = pelk->copyCancel(mDstPath, mSize);
    if (result >= 0) return pelk::replySuccess(cli);
    pelk::sendReply(cli, pelk::REPLY_FAILED, "failed %d", result);
    return -1;
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
                                                                        Pelk* pelk) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    int result = pelk->changePermissionMigration(mPath, mUid, mGid, mMode);
    if (result == 0) return pelk::replySuccess(cli);
    SLOGE("changePermissionMigrationCmd ERROR [mPath=%s mUid=%d mGid=%d mMode=%d]", mPath, mUid, mGid, mMode);
    return pelk::replyFailure(cli, result);
}
