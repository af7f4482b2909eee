// "create_partition", "remove_partition" and "sync_pkg_dir": make and remove
// the storage areas of a container (or of the device-wide store), and keep
// package directories in step between two users.
#define LOG_TAG "pelkd"

#include <log/log.h>
#include <stdlib.h>

#include <crypt/crypt.h>

#include "command/CommandListenerEnterprise.h"
#include "command/CommandLog.h"
#include "command/CommandReply.h"
#include "manager/Pelk.h"

using pelk::countMatches;
using pelk::replyFailed;
using pelk::replySuccess;
using pelk::replyWrongCount;
using pelk::sendReply;

namespace {

// Storage kinds of the manager's force operations.
enum StorageKind { KIND_NONE = -1, KIND_CE = 0, KIND_DE = 1, KIND_MIREL = 2 };

// The kind a command's type word stands for, with the line it logs for it
// (null for an unknown type, which logs nothing).
struct KindOfType {
    int type;
    int kind;
    const char* createLine;
    const char* removeLine;
};

const KindOfType kKinds[] = {
    {1, KIND_CE, "creating Zanth container CE partitions", "Removing Zanth container CE partitions"},
    {2, KIND_MIREL, "creating device wide partitions", "Removing device wide partitions"},
    {3, KIND_DE, "creating Zanth container DE partitions", "Removing Zanth container DE partitions"},
};

const KindOfType* kindOfType(int type) {
    for (const KindOfType& k : kKinds) {
        if (k.type == type) return &k;
    }
    return nullptr;
}

int replyUserIdFailed(SocketClient* cli) {
    sendReply(cli, pelk::REPLY_FAILED, "userId failed");
    return -1;
}

}  // namespace

// ---- create_partition ----
CommandListenerEnterprise::createPartCmd::createPartCmd() : PelkdCommand("create_partition") {}

int CommandListenerEnterprise::createPartCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mUserId = atoi(argv[1]);
    mType = atoi(argv[2]);
    return 0;
}

int CommandListenerEnterprise::createPartCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) {
    dumpArgs(pelk::leadingWords(argc, 1), argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    if (isFBESupported()) {
        sendReply(cli, pelk::REPLY_FAILED, "Not allowed to create partition on FBE devices");
        return -1;
    }
    const KindOfType* k = kindOfType(mType);
    if (k) SLOGE("%s", k->createLine);
    const int kind = k ? k->kind : KIND_NONE;
    if (mUserId < 0) return replyUserIdFailed(cli);
    if (pelk->forceCreateStorage(mUserId, kind) == 0) return replySuccess(cli);
    // system_server hears of the failure first; what was half made is
    // removed after the reply, as it always has been.
    replyFailed(cli);
    pelk->forceRemoveStorage(mUserId, kind);
    return -1;
}

// ---- remove_partition ----
CommandListenerEnterprise::removePartCmd::removePartCmd() : PelkdCommand("remove_partition") {}

int CommandListenerEnterprise::removePartCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mUserId = atoi(argv[1]);
    mType = atoi(argv[2]);
    return 0;
}

int CommandListenerEnterprise::removePartCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    const KindOfType* k = kindOfType(mType);
    if (k) SLOGE("%s", k->removeLine);
    if (mUserId < 0) return replyUserIdFailed(cli);
    int removed = pelk->forceRemoveStorage(mUserId, k ? k->kind : KIND_NONE);
    // The password file goes with the storage, whatever became of the areas.
    if (pelk->removePassword(mUserId) != 0) {
        SLOGE("ERROR remove password file");
        return replyFailed(cli);
    }
    return removed == 0 ? replySuccess(cli) : replyFailed(cli);
}

// ---- sync_pkg_dir ----
CommandListenerEnterprise::syncFSCmd::syncFSCmd() : PelkdCommand("sync_pkg_dir") {}

int CommandListenerEnterprise::syncFSCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mFirst = atoi(argv[1]);
    mSecond = atoi(argv[2]);
    return 0;
}

int CommandListenerEnterprise::syncFSCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    return pelk->syncPkgDir(mFirst, mSecond) == 0 ? replySuccess(cli) : replyFailed(cli);
}
