// The netlink socket to the eCryptfs module and the framing of what the
// daemon sends on it. Its lines carry the logging library's default tag (no
// LOG_TAG); the receive and close lines go to the system buffer, the rest to
// the main buffer.
#include "fs_handler/FsNetlinkHandler.h"

#include <errno.h>
#include <log/log.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int openNetlinkSocket(int protocol) {
    int fd = socket(AF_NETLINK, SOCK_RAW, protocol);
    ALOGI("Socket created with fd:%d\n", fd);
    return fd;
}

}  // namespace

FsNetlinkHandler::FsNetlinkHandler(int protocol) : mFd(-1) { mFd = openNetlinkSocket(protocol); }

FsNetlinkHandler::~FsNetlinkHandler() {
    // Descriptor 0 is treated as no socket at all and left open.
    if (mFd >= 1 && close(mFd) != 0) SLOGE("Attempting to close invalid fd %d, error: %s", mFd, strerror(errno));
}

int FsNetlinkHandler::init(int protocol) { return openNetlinkSocket(protocol); }

int FsNetlinkHandler::send(int type, void const* data, unsigned long len) {
    char message[ECRYPTFS_NL_DATA_SIZE] = {0};
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    // Computed in 32 bits: a huge len wraps, which the last check catches.
    uint32_t length = static_cast<uint32_t>(len + ECRYPTFS_NL_HEADER_SIZE);
    netlinkwire::putHeader(message, length, static_cast<uint16_t>(type), ECRYPTFS_NL_FLAG_REQUEST);
    if (mFd < 0) return -EBADF;
    if (data == nullptr) {
        ALOGE("%s :: Invalid data\n", "send");
        return -EINVAL;
    }
    if (length > ECRYPTFS_NL_MAX_LEN) {
        ALOGE("%s ::The netlink message is too large\n", "send");
        return -EINVAL;
    }
    if (len >= ECRYPTFS_NL_MAX_LEN) {
        ALOGE("%s ::The netlink message-data is too large\n", "send");
        return -EINVAL;
    }
    memcpy(message + ECRYPTFS_NL_HEADER_SIZE, data, len);
    ssize_t sent;
    do {
        sent = sendto(mFd, message, length, 0, reinterpret_cast<sockaddr*>(&kernel), sizeof(kernel));
    } while (sent < 0 && errno == EINTR);
    if (sent < 0 || static_cast<uint32_t>(sent) != length) return -EPROTO;
    return static_cast<int>(sent);
}

int FsNetlinkHandler::recv(ecryptfs_netlink_recvmsg* msg, int mode, int flags, unsigned int* addrLen) {
    if (mFd < 0) return 0;
    if (mode == 1) flags |= MSG_DONTWAIT;
    // The sender's address is read into this record and dropped: only its
    // length reaches the caller.
    sockaddr_nl sender{};
    for (;;) {
        ssize_t received =
            recvfrom(mFd, msg->data, sizeof(msg->data), flags, reinterpret_cast<sockaddr*>(&sender), addrLen);
        if (received >= 0) return static_cast<int>(received);
        if (errno == EINTR) continue;
        if (errno == EAGAIN) {
            if (mode == 1) return 0;
            continue;
        }
        SLOGE("%s: Error receiving from netlink socket, error: %s", "recv", strerror(errno));
        return -1;
    }
}

int FsNetlinkHandler::setPid() {
    char registration[ECRYPTFS_REGISTER_SIZE] = {0};
    netlinkwire::putU32(registration + ECRYPTFS_REGISTER_PID_OFFSET, static_cast<uint32_t>(getpid()));
    int result = send(ECRYPTFS_MSG_REGISTER, registration, sizeof(registration));
    if (result >= 0) {
        ALOGI("fs_handler setPid success pid = %d", getpid());
        return 0;
    }
    ALOGE("Could net set pid for events, error: %s", strerror(-result));
    return result;
}
