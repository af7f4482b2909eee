// Commands about single files across container boundaries: existence,
// modification time and size, deletion, and DLP notices.
#define LOG_TAG "pelkd"

#include <errno.h>
#include <log/log.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "command/CommandListenerEnterprise.h"
#include "command/CommandReply.h"
#include "manager/Pelk.h"

using pelk::replyWrongCount;

// ---- the shared path-and-id parser ----
CommandListenerEnterprise::pathCmd::pathCmd(const char* word) : PelkdCommand(word) {}

int CommandListenerEnterprise::pathCmd::parseCmd(int argc, char** argv) {
    if (!pelk::countMatches(argc, mExpectedArgc)) return -1;
    pelk::copyWord(mFilePath, sizeof(mFilePath), argv[1]);
    mContainerId = atoi(argv[2]);
    return 0;
}

// ---- is_file_exist ----
CommandListenerEnterprise::isFileExistCmd::isFileExistCmd() : pathCmd("is_file_exist") {}

int CommandListenerEnterprise::isFileExistCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    int result = pelk->isFileExist(mFilePath, mContainerId);
    if (result == 0) {
        pelk::sendReply(cli, pelk::REPLY_OK, "success");
        return 0;
    }
    SLOGE("isFileExist ERROR [mFilePath=%s mContainerId=%d]", mFilePath, mContainerId);
    return pelk::replyFailure(cli, result);
}

// ---- get_file_info ----
CommandListenerEnterprise::getFileInfoCmd::getFileInfoCmd() : pathCmd("get_file_info") {}

int CommandListenerEnterprise::getFileInfoCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk*) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    struct stat st;
    if (lstat(mFilePath, &st) != 0) {
        // The log carries the true cause; the reply negates the -1 result,
        // and system_server matches on the text of error number 1.
        SLOGE("getFileInfoCmd :: Failed to lstat(%s) : %s", mFilePath, strerror(errno));
        int result = -1;
        pelk::sendReply(cli, pelk::REPLY_FAILED, "failed %d %s", result, strerror(-result));
        return result;
    }
    SLOGI("s.st_mtime = %lu", static_cast<unsigned long>(st.st_mtime));
    pelk::sendReply(cli, pelk::REPLY_OK, "%lu %lld", static_cast<unsigned long>(st.st_mtime),
                    static_cast<long long>(st.st_size));
    return 0;
}

// ---- delete_file ----
CommandListenerEnterprise::deleteFileCmd::deleteFileCmd() : pathCmd("delete_file") {}

int CommandListenerEnterprise::deleteFileCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) {
    dumpArgs(argc, argv);
    if (parseCmd(argc, argv) != 0) return replyWrongCount(cli, argc, mExpectedArgc);
    int result = pelk->deleteFile(mFilePath, mContainerId);
    if (result == 0) return pelk::replySuccess(cli);
    SLOGE("deleteFile ERROR [mFilePath=%s mContainerId=%d]", mFilePath, mContainerId);
    return pelk::replyFailure(cli, result);
}

// ---- dlp_notify ----
CommandListenerEnterprise::dlpNotifyCmd::dlpNotifyCmd() : PelkdCommand("dlp_notify") {}

int CommandListenerEnterprise::dlpNotifyCmd::parseCmd(int, char**) {
    return 0;  // any number of words: the DLP library reads them
}

int CommandListenerEnterprise::dlpNotifyCmd::runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) {
    dumpArgs(argc, argv);
    parseCmd(argc, argv);
    int result = pelk->forwardDLPCommand(argc, argv);
    if (result == 0) return pelk::replySuccess(cli);
    SLOGE("forwardDLPCommand ERROR = %d", result);
    return pelk::replyFailure(cli, result);
}
