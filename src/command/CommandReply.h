// The reply conventions every command follows: one sendMsg per command line,
// a code and a text formatted into a zero-filled buffer, never errno.
//   200 done, 201 accepted and still running, 281 refused or failed,
//   501 wrong number of words or unknown sub-command.
#pragma once

#include <stddef.h>

#include "base/Strings.h"  // copyWord, used by every command

class SocketClient;

namespace pelk {

enum ReplyCode {
    REPLY_OK = 200,
    REPLY_ON_GOING = 201,
    REPLY_FAILED = 281,
    REPLY_BAD_ARGS = 501,
};

// Size of an ordinary reply text, and of the success texts that may carry a
// whole path or a list of sizes.
constexpr size_t REPLY_SIZE = 128;
constexpr size_t LONG_REPLY_SIZE = 4224;

// Formats the text into a zero-filled buffer of REPLY_SIZE (cut when longer)
// and sends it with the code.
void sendReply(SocketClient* cli, int code, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
// The same with a LONG_REPLY_SIZE buffer.
void sendLongReply(SocketClient* cli, int code, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

// 501 "given argc [given] != expected [expected]"; answers -1 for the
// command to return.
int replyWrongCount(SocketClient* cli, int given, int expected);
// Logs "FATAL: different number of paramerter given [given] != [expected]"
// at ERROR when the counts differ; true when they match.
bool countMatches(int given, int expected);
// 200 "success"; answers 0.
int replySuccess(SocketClient* cli);
// 281 "failed"; answers -1.
int replyFailed(SocketClient* cli);
// 281 "failed <r> <strerror(-r)>" for a negative r, 281 "failed <r>" for a
// positive one; answers -1.
int replyFailure(SocketClient* cli, int result);
// The reply to one chunk of a chunked copy: a negative r is the failure
// reply; 1 (the copy is complete) gets 200 "success"; 0 and any other
// positive value get 201 "on going". Answers r.
int replyChunkResult(SocketClient* cli, int result);

}  // namespace pelk
