// The socket to the eCryptfs module's netlink unit: opening it, framing and
// sending messages to the kernel, receiving its requests, and registering
// the daemon's pid so the kernel knows whom to ask. The event thread
// (FsHandlerThread) is the only user; it makes one handler per life of its
// loop.
#pragma once

#include "fs_handler/NetlinkWire.h"

class FsNetlinkHandler {
public:
    // Opens socket(AF_NETLINK, SOCK_RAW, protocol); the descriptor stays -1
    // when that fails. Logs "Socket created with fd:%d".
    explicit FsNetlinkHandler(int protocol);
    // Closes the descriptor when it is 1 or greater: 0 counts as no socket
    // and is left open, as the daemon always has.
    ~FsNetlinkHandler();
    FsNetlinkHandler(const FsNetlinkHandler&) = delete;
    FsNetlinkHandler& operator=(const FsNetlinkHandler&) = delete;

    // Opens a further socket the same way and answers its descriptor, which
    // the caller owns. The handler's own socket is not replaced (kept as it
    // always was).
    int init(int protocol);
    // Frames len payload bytes behind a header of this type and sends them
    // to the kernel. The byte count sent; -9 without a socket, -22 for a null
    // payload or a header length beyond 8192 (payloads of 8176 bytes at
    // most), -71 when the send fails or is short. Interrupted sends repeat.
    int send(int type, void const* data, unsigned long len);
    // Receives one datagram into msg->data (at most 8208 bytes); mode 1 does
    // not block. The byte count, 0 without a socket (or, in mode 1, nothing
    // waiting), -1 on error. Only the sender address's length comes back.
    int recv(ecryptfs_netlink_recvmsg* msg, int mode, int flags, unsigned int* addrLen);
    // Sends the registration with getpid(); 0, or the negative send error.
    int setPid();

    int fd() const { return mFd; }

private:
    int mFd;
};
