// Changing and verifying a container's password. The passwords never reach
// the log (only the command word and the user are logged) and are wiped from
// the command's fields as soon as the line has been served.
#define LOG_TAG "pelkd"

#include <log/log.h>
#include <stdlib.h>

#include "base/Secret.h"
#include "command/CommandListenerEnterprise.h"
#include "command/CommandLog.h"
#include "command/CommandReply.h"
#include "manager/Pelk.h"

using pelk::countMatches;
using pelk::replyWrongCount;

namespace {

// Words of a password line that may be logged: the command word and the user.
const int kLoggedWords = 2;
// Marks a line whose word count was wrong, apart from any manager result.
const int kNotParsed = -1000;

}  // namespace

// ---- change_password ----
CommandListenerEnterprise::chpasswdCmd::chpasswdCmd() : PelkdCommand("change_password") {}

int CommandListenerEnterprise::chpasswdCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mUserId = atoi(argv[1]);
    pelk::copyWord(mOldPassword, sizeof(mOldPassword), argv[2]);
    pelk::copyWord(mNewPassword, sizeof(mNewPassword), argv[3]);
    return 0;
}

int CommandListenerEnterprise::chpasswdCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk* manager) {
    dumpArgs(pelk::leadingWords(argc, kLoggedWords), argv);
    int result = parseCmd(argc, argv) != 0 ? kNotParsed : manager->changePassword(mUserId, mOldPassword, mNewPassword);
    // The passwords leave the object whatever happened.
    pelk::wipe(mOldPassword, sizeof(mOldPassword));
    pelk::wipe(mNewPassword, sizeof(mNewPassword));
    if (result == kNotParsed) return replyWrongCount(cli, argc, mExpectedArgc);
    if (result == 0) {
        pelk::sendReply(cli, pelk::REPLY_OK, "success");
        return 0;
    }
    SLOGE("changePassword ERROR");
    return pelk::replyFailed(cli);
}

// ---- verify_password ----
CommandListenerEnterprise::verifyPasswdCmd::verifyPasswdCmd() : PelkdCommand("verify_password") {}

int CommandListenerEnterprise::verifyPasswdCmd::parseCmd(int argc, char** argv) {
    if (!countMatches(argc, mExpectedArgc)) return -1;
    mUserId = atoi(argv[1]);
    pelk::copyWord(mPassword, sizeof(mPassword), argv[2]);
    return 0;
}

int CommandListenerEnterprise::verifyPasswdCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk* manager) {
    dumpArgs(pelk::leadingWords(argc, kLoggedWords), argv);
    int result = parseCmd(argc, argv) != 0 ? kNotParsed : manager->verifyPassword(mUserId, mPassword);
    pelk::wipe(mPassword, sizeof(mPassword));
    if (result == kNotParsed) return replyWrongCount(cli, argc, mExpectedArgc);
    if (result == 0) {
        pelk::sendReply(cli, pelk::REPLY_OK, "success");
        return 0;
    }
    SLOGE("verifyPassword ERROR");
    return pelk::replyFailed(cli);
}
