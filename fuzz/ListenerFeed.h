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

// Longest input taken, and the piece written before the listener reads:
// the socket buffer never has to hold more, and an over-long line (past
// the listener's 65536 bytes) arrives over many reads as a real one does.
const size_t kMaxInput = 1 << 20;
const size_t kPiece = 16384;

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
    if (size == 0 || size > kMaxInput) return;
    SocketClient* client = new SocketClient(listenerEnd, false, true);
    bool open = true;
    for (size_t sent = 0; open && sent < size;) {
        size_t n = size - sent < kPiece ? size - sent : kPiece;
        if (!pelk::writeFully(callerEnd, data + sent, n)) break;
        sent += n;
        while (open && (!client->heldInput().empty() || bytesWaiting(listenerEnd))) {
            open = listener->onDataAvailable(client);
            drainReplies(callerEnd);
        }
    }
    drainReplies(callerEnd);
    drainReplies(listenerEnd);  // what a stopped listener left unread
    client->decRef();
}

}  // namespace fuzzfeed
