// Container database and data migration.
#define LOG_TAG "pelkd"

#include <log/log.h>
#include <stdlib.h>

#include "command/CommandListenerEnterprise.h"
#include "command/CommandReply.h"

using pelk::countMatches;
using pelk::replyFailed;
using pelk::replyWrongCount;

// ---- migration ----
CommandListenerEnterprise::migrationCmd::migrationCmd() : PelkdCommand("migration") {}

int CommandListenerEnterprise::migrationCmd::parseCmd(int argc, char** argv) {
    // Four words or more; the message has always said "more than 4".
    if (argc < 4) {
        SLOGE("FATAL: Migration Param num has to be more than 4 [argc:%d]", argc);
        return -1;
    }
    mUserId = atoi(argv[1]);
    pelk::copyWord(mKind, sizeof(mKind), argv[2]);
    pelk::copyWord(mName, sizeof(mName), argv[3]);
    mExtraCount = argc - 4;
    return 0;
}

int CommandListenerEnterprise::migrationCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    // Database and data migration are not in this build yet.
    return replyFailed(cli);
}
