#define LOG_TAG "pelkd"

#include "command/CommandReply.h"
#include <log/log.h>

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <sysutils/SocketClient.h>

namespace pelk {

namespace {

template <size_t N>
void sendFormatted(SocketClient* cli, int code, const char* fmt, va_list ap) {
    char text[N];
    memset(text, 0, sizeof(text));
    vsnprintf(text, sizeof(text), fmt, ap);
    cli->sendMsg(code, text, false);
}

}  // namespace

void sendReply(SocketClient* cli, int code, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    sendFormatted<REPLY_SIZE>(cli, code, fmt, ap);
    va_end(ap);
}

void sendLongReply(SocketClient* cli, int code, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    sendFormatted<LONG_REPLY_SIZE>(cli, code, fmt, ap);
    va_end(ap);
}

int replyWrongCount(SocketClient* cli, int given, int expected) {
    sendReply(cli, REPLY_BAD_ARGS, "given argc [%d] != expected [%d]", given, expected);
    return -1;
}

bool countMatches(int given, int expected) {
    if (given == expected) return true;
    // "paramerter" is the word platform log scanners already look for.
    SLOGE("FATAL: different number of paramerter given [%d] != [%d]", given, expected);
    return false;
}

int replySuccess(SocketClient* cli) {
    sendReply(cli, REPLY_OK, "success");
    return 0;
}

int replyFailed(SocketClient* cli) {
    sendReply(cli, REPLY_FAILED, "failed");
    return -1;
}

int replyFailure(SocketClient* cli, int result) {
    if (result < 0) {
        sendReply(cli, REPLY_FAILED, "failed %d %s", result, strerror(-result));
    } else {
        sendReply(cli, REPLY_FAILED, "failed %d", result);
    }
    return -1;
}

int replyChunkResult(SocketClient* cli, int result) {
    if (result < 0) {
        replyFailure(cli, result);
    } else if (result == 1) {
        replySuccess(cli);
    } else {
        sendReply(cli, REPLY_ON_GOING, "on going");
    }
    return result;
}

}  // namespace pelk
