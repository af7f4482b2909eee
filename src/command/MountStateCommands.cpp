// "is_mounted" and the commands that are kept only so that old callers get a
// clear refusal: "reset_partition", "mount_legacy" and "unmount_legacy".
#include <stdlib.h>

#include <crypt/crypt.h>

#include "command/CommandListenerEnterprise.h"
#include "command/CommandReply.h"
#include "manager/Pelk.h"

using pelk::countMatches;
using pelk::replyWrongCount;
using pelk::sendReply;

namespace {

// The legacy mount commands share this answer whatever their words.
int refuseLegacyMount(SocketClient* cli, int argc, char** argv) {
    CommandListenerEnterprise::dumpArgs(argc, argv);
    return pelk::replyFailed(cli);
}

}  // namespace

// ---- is_mounted ----
CommandListenerEnterprise::isMountedCmd::isMountedCmd() : PelkdCommand("is_mounted") {}

int CommandListenerEnterprise::isMountedCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mUserId = atoi(argv[1]);
    return 0;
}

int CommandListenerEnterprise::isMountedCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // Only storage of the older, mounted scheme can be down while its user
    // exists; everywhere else the storage is there whenever the user is.
    if (!isFBESupported() && isLegacyEncryption(mUserId) && !pelk->isMounted(mUserId)) {
        sendReply(cli, pelk::REPLY_FAILED, "failed");
        return -1;
    }
    sendReply(cli, pelk::REPLY_OK, "success");
    return 0;
}

// ---- reset_partition ----
CommandListenerEnterprise::resetPartCmd::resetPartCmd() : PelkdCommand("reset_partition") {}

int CommandListenerEnterprise::resetPartCmd::parseCmd(int argc, char**) {
    return countMatches(argc, mExpectedArgc) ? 0 : -1;
}

int CommandListenerEnterprise::resetPartCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    dumpArgs(argc, argv);
    sendReply(cli, pelk::REPLY_FAILED, "failed, resetPartition not supported at vold");
    return -1;
}

// ---- mount_legacy ----
CommandListenerEnterprise::mountLegacyCmd::mountLegacyCmd() : PelkdCommand("mount_legacy") {}

int CommandListenerEnterprise::mountLegacyCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mFirst = atoi(argv[1]);
    mSecond = atoi(argv[2]);
    return 0;
}

int CommandListenerEnterprise::mountLegacyCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    return refuseLegacyMount(cli, argc, argv);
}

// ---- unmount_legacy ----
CommandListenerEnterprise::unmountLegacyCmd::unmountLegacyCmd() : PelkdCommand("unmount_legacy") {}

int CommandListenerEnterprise::unmountLegacyCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    pelk::copyWord(mPath, sizeof(mPath), argv[1]);
    return 0;
}

int CommandListenerEnterprise::unmountLegacyCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    return refuseLegacyMount(cli, argc, argv);
}
