// Container database and data migration.
#define LOG_TAG "pelkd"

#include <log/log.h>
#include <stdlib.h>
#include <string.h>

#include "command/CommandListenerEnterprise.h"
#include "command/CommandReply.h"
#include "tools/DbMigration.h"

using pelk::countMatches;
using pelk::replyFailed;
using pelk::replySuccess;
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
    int result = -1;
    if (strncmp(mKind, "mirel_db", WORD_SIZE) == 0) {
        result = mirelDbmigration(mUserId, mName, mExtraCount, const_cast<const char**>(argv + 4));
    }
    if (strncmp(mKind, "data", WORD_SIZE) == 0) result = dataMigration(mUserId);
    if (result == 0) return replySuccess(cli);
    SLOGE("migration %s error : %d", mKind, result);
    return replyFailed(cli);
}
