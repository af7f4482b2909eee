// The seam that gives the simulated device the eCryptfs module's netlink
// unit 28.
//
// What the device has: a raw netlink socket of unit 28, which gets a port id
// at its first send; the daemon registers its pid with a message to the
// kernel (port 0), the module sends requests to the registered process and
// reads the replies, datagram by datagram.
//
// What the host has: no unit 28 (socket() fails with EPROTONOSUPPORT). So
// device programs link with --wrap=socket, --wrap=sendto and --wrap=recvfrom
// (see platform/CMakeLists.txt, beside the mount-table seam); the engine
// calls them exactly as on a device and its source knows nothing of this:
// - socket(AF_NETLINK, SOCK_RAW, 28) answers a unix datagram socket bound at
//   "/dev/netlink28/<pid>.<fd>" (datagram boundaries and truncation at the
//   receive buffer as with netlink).
// - sendto() on such a socket to a netlink address with port 0 runs the
//   module stand-in right here, as a send to the kernel runs the module's
//   receive in the sender's context: a registration (type 3001) is recorded
//   with its pid and the socket's path; any other message is a reply and
//   goes to the endpoint that sent the last datagram this socket read (the
//   daemon answers one request at a time). A reply with nobody to take it
//   is dropped, and the send still succeeds, as the kernel accepts it.
// - recvfrom() on such a socket reports the kernel as the sender: a
//   12-byte netlink address with port 0.
// Every other socket call passes straight through. Sockets are recognised
// by their bound path, so a descriptor number reused for another socket is
// never mistaken for one of them.
//
// Failures a test can arm in the device profile: "fail.netlink28_socket"
// (socket: EPROTONOSUPPORT), "fail.netlink28_register" (registration:
// ECONNREFUSED), "fail.netlink28_interrupt" (sendto: EINTR) and
// "fail.netlink28_send" (sendto: ENOBUFS).
#include <kernel/netlink28.h>

#include <errno.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <mutex>

#include "Netlink28Module.h"
#include "devprofile/DeviceProfile.h"

extern "C" {
int __real_socket(int domain, int type, int protocol);
ssize_t __real_sendto(int fd, const void* buf, size_t len, int flags, const sockaddr* to, socklen_t toLen);
ssize_t __real_recvfrom(int fd, void* buf, size_t len, int flags, sockaddr* from, socklen_t* fromLen);
}

namespace hostkernel {
namespace {

constexpr int kUnit = 28;

// The endpoint each emulated socket last heard from, by descriptor.
struct Peers {
    std::mutex lock;
    std::map<int, sockaddr_un> byFd;
};

Peers& peers() {
    static auto* table = new Peers;
    return *table;
}

bool isEmulated(int fd) {
    sockaddr_un self{};
    socklen_t length = sizeof(self);
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&self), &length) != 0 || self.sun_family != AF_UNIX) return false;
    size_t prefix = strlen(kNetlinkPortDir);
    return length > offsetof(sockaddr_un, sun_path) + prefix && strncmp(self.sun_path, kNetlinkPortDir, prefix) == 0 &&
           self.sun_path[prefix] == '/';
}

int openEmulated(int type) {
    if (devprofile::shouldFail("netlink28_socket")) {
        errno = EPROTONOSUPPORT;
        return -1;
    }
    mkdir(kNetlinkPortDir, 0700);
    int fd = __real_socket(AF_UNIX, SOCK_DGRAM | (type & (SOCK_CLOEXEC | SOCK_NONBLOCK)), 0);
    if (fd < 0) return -1;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s/%d.%d", kNetlinkPortDir, getpid(), fd);
    // The path of a closed socket with the same number is stale: take it over.
    unlink(address.sun_path);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    std::lock_guard<std::mutex> hold(peers().lock);
    peers().byFd.erase(fd);
    return fd;
}

ssize_t sendToKernel(int fd, const void* buf, size_t len) {
    if (devprofile::shouldFail("netlink28_interrupt")) {
        errno = EINTR;
        return -1;
    }
    if (devprofile::shouldFail("netlink28_send")) {
        errno = ENOBUFS;
        return -1;
    }
    std::string datagram(static_cast<const char*>(buf), len);
    if (isRegistration(datagram)) {
        if (devprofile::shouldFail("netlink28_register")) {
            errno = ECONNREFUSED;
            return -1;
        }
        sockaddr_un self{};
        socklen_t length = sizeof(self);
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&self), &length) != 0) return -1;
        if (!recordRegistration(datagram, self.sun_path)) return -1;
        return static_cast<ssize_t>(len);
    }
    sockaddr_un peer{};
    {
        std::lock_guard<std::mutex> hold(peers().lock);
        auto it = peers().byFd.find(fd);
        if (it == peers().byFd.end()) return static_cast<ssize_t>(len);
        peer = it->second;
    }
    __real_sendto(fd, buf, len, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&peer), sizeof(peer));
    return static_cast<ssize_t>(len);
}

}  // namespace
}  // namespace hostkernel

extern "C" {

int __wrap_socket(int domain, int type, int protocol) {
    if (domain == AF_NETLINK && (type & 0xf) == SOCK_RAW && protocol == hostkernel::kUnit)
        return hostkernel::openEmulated(type);
    return __real_socket(domain, type, protocol);
}

ssize_t __wrap_sendto(int fd, const void* buf, size_t len, int flags, const sockaddr* to, socklen_t toLen) {
    if (to == nullptr || toLen < sizeof(sa_family_t) || to->sa_family != AF_NETLINK || !hostkernel::isEmulated(fd))
        return __real_sendto(fd, buf, len, flags, to, toLen);
    if (toLen < sizeof(sockaddr_nl)) {
        errno = EINVAL;
        return -1;
    }
    if (reinterpret_cast<const sockaddr_nl*>(to)->nl_pid != 0) {
        // Only the kernel listens on this unit.
        errno = ECONNREFUSED;
        return -1;
    }
    return hostkernel::sendToKernel(fd, buf, len);
}

ssize_t __wrap_recvfrom(int fd, void* buf, size_t len, int flags, sockaddr* from, socklen_t* fromLen) {
    if (!hostkernel::isEmulated(fd)) return __real_recvfrom(fd, buf, len, flags, from, fromLen);
    sockaddr_un peer{};
    socklen_t peerLength = sizeof(peer);
    ssize_t received = __real_recvfrom(fd, buf, len, flags, reinterpret_cast<sockaddr*>(&peer), &peerLength);
    if (received < 0) return received;
    if (peerLength > offsetof(sockaddr_un, sun_path)) {
        std::lock_guard<std::mutex> hold(hostkernel::peers().lock);
        hostkernel::peers().byFd[fd] = peer;
    }
    if (from != nullptr && fromLen != nullptr) {
        sockaddr_nl kernel{};
        kernel.nl_family = AF_NETLINK;
        memcpy(from, &kernel, std::min<size_t>(*fromLen, sizeof(kernel)));
        *fromLen = sizeof(kernel);
    }
    return received;
}

}  // extern "C"
