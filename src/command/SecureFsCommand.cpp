// "secure_fs" sub-command number user: requests about the sensitive-data
// chambers. Chambers are neither made nor removed on request any more; any
// other sub-command is acknowledged without work.
#define LOG_TAG "pelkd"

#include <log/log.h>
#include <stdlib.h>
#include <string.h>

#include <persona/persona.h>

#include "command/CommandListenerEnterprise.h"
#include "command/CommandReply.h"

namespace {

const int kMinWords = 4;

}  // namespace

CommandListenerEnterprise::secureFs::secureFs() : PelkdCommand("secure_fs") {}

int CommandListenerEnterprise::secureFs::parseCmd(int argc, char** argv) {
    if (argc < kMinWords) return -1;
    pelk::copyWord(mSubCommand, sizeof(mSubCommand), argv[1]);
    mNumber = atoi(argv[2]);
    mUserId = atoi(argv[3]);
    return 0;
}

int CommandListenerEnterprise::secureFs::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    dumpArgs(argc, argv);
    // Too few words is answered without a log line, quoting the -1 this
    // command keeps as its expected count.
    if (parseCmd(argc, argv) != 0) return pelk::replyWrongCount(cli, argc, mExpectedArgc);

    bool create = strcmp(mSubCommand, "create_chamber") == 0;
    bool remove = strcmp(mSubCommand, "remove_chamber") == 0;
    if (!create && !remove) {
        pelk::sendLongReply(cli, pelk::REPLY_OK, "%s %s", mSubCommand, "success");
        return 0;
    }
    if (!pelk::countMatches(argc, kMinWords)) return pelk::replyWrongCount(cli, argc, kMinWords);
    if (isZanthUser(mUserId)) {
        SLOGE("%s not supported for Zanth container", mSubCommand);
    } else {
        SLOGE("%s not supported currently.", mSubCommand);
    }
    pelk::sendReply(cli, pelk::REPLY_FAILED, "%s %s", mSubCommand, "failed");
    return -1;
}
