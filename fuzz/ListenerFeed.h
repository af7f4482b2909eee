// One input as the bytes a client sends to a framework listener, served as
// the listener's own thread serves them: read, split into lines, one line a
// turn, each dispatched to its command. A fresh client each time, so nothing
// of one input (an unended line, lines held back) carries into the next.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sysutils/SocketClient.h>

#include "base/FileIo.h"

namespace fuzzfeed {

// Longest input sent whole: far past the listener's read chunk, well within
// what a socket buffer takes without a reader.
const size_t kMaxInput = 65536;

// Reads and drops whatever waits on one end.
inline void drainReplies(int end) {
    char buf[4096];
    while (recv(end, buf, sizeof(buf), MSG_DONTWAIT) > 0) {}
}

inline bool bytesWaiting(int fd) {
    int n = 0;
    return ioctl(fd, FIONREAD, &n) == 0 && n > 0;
}

// Listener: a framework listener whose onDataAvailable the harness may call.
template <typename Listener>
void feed(Listener* listener, int listenerEnd, int callerEnd, const uint8_t* data, size_t size) {
    if (size > kMaxInput || !pelk::writeFully(callerEnd, data, size)) return;
    SocketClient* client = new SocketClient(listenerEnd, false, true);
    while (!client->heldInput().empty() || bytesWaiting(listenerEnd)) {
        if (!listener->onDataAvailable(client)) break;
        drainReplies(callerEnd);
    }
    drainReplies(callerEnd);
    drainReplies(listenerEnd);  // what a stopped listener left unread
    client->decRef();
}

}  // namespace fuzzfeed
