// The commands that create, mount, unmount and remove a container's storage,
// pre-mount it at boot and keep its package directories in step. Until the
// manager can do the work behind one of them, it answers "failed" after its
// word count is checked, so system_server never believes in work not done.
#include <stdlib.h>

#include "command/CommandListenerEnterprise.h"
#include "command/CommandLog.h"
#include "command/CommandReply.h"
#include "base/Secret.h"

using pelk::countMatches;
using pelk::replyFailed;
using pelk::replyWrongCount;

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

int CommandListenerEnterprise::mountCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    // The key is the third word: only the command word and the user are logged.
    dumpArgs(pelk::leadingWords(argc, 2), argv);
    int parsed = parseCmd(argc, argv);
    pelk::wipe(mKey, sizeof(mKey));
    if (parsed != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // The mount operations of the manager are not in this build yet.
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

int CommandListenerEnterprise::unmountCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // The unmount operations of the manager are not in this build yet.
    return replyFailed(cli);
}

// ---- create_partition ----
CommandListenerEnterprise::createPartCmd::createPartCmd() : PelkdCommand("create_partition") {}

int CommandListenerEnterprise::createPartCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mUserId = atoi(argv[1]);
    mType = atoi(argv[2]);
    return 0;
}

int CommandListenerEnterprise::createPartCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    dumpArgs(pelk::leadingWords(argc, 1), argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // Forced creation of storage areas is not in this build yet.
    return replyFailed(cli);
}

// ---- remove_partition ----
CommandListenerEnterprise::removePartCmd::removePartCmd() : PelkdCommand("remove_partition") {}

int CommandListenerEnterprise::removePartCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mUserId = atoi(argv[1]);
    mType = atoi(argv[2]);
    return 0;
}

int CommandListenerEnterprise::removePartCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // Forced removal of storage areas is not in this build yet.
    return replyFailed(cli);
}

// ---- sync_pkg_dir ----
CommandListenerEnterprise::syncFSCmd::syncFSCmd() : PelkdCommand("sync_pkg_dir") {}

int CommandListenerEnterprise::syncFSCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mFirst = atoi(argv[1]);
    mSecond = atoi(argv[2]);
    return 0;
}

int CommandListenerEnterprise::syncFSCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // The package directory sync of the manager is not in this build yet.
    return replyFailed(cli);
}

// ---- premount ----
CommandListenerEnterprise::premountCmd::premountCmd() : PelkdCommand("premount") {}

int CommandListenerEnterprise::premountCmd::parseCmd(int argc, char**) {
    return countMatches(argc, mExpectedArgc) ? 0 : -1;
}

int CommandListenerEnterprise::premountCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // The boot pre-mount of the manager is not in this build yet.
    return replyFailed(cli);
}
