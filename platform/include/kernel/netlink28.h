// Host-only: the eCryptfs module's netlink unit 28 on the simulated device.
//
// The host kernel has no unit 28. Device programs link with the socket
// calls wrapped (see platform/kernel/Netlink28Seam.cpp): a socket of unit 28
// becomes a unix datagram socket at "/dev/netlink28/<pid>.<fd>", and what
// the daemon sends to the kernel (port 0) is taken by the module stand-in
// in its own process, as the kernel's receive runs in the sender's context:
// a registration is recorded in "/sim/kernel/netlink28", anything else is
// a reply and goes to the endpoint whose request the socket read last.
// KernelEndpoint below is the other side: it plays the module sending
// requests to the registered daemon and reading its replies, for the
// pelk-kernel program and for tests.
#pragma once

#include <stdint.h>

#include <string>

#include "base/UniqueFd.h"

namespace hostkernel {

// Where daemons' unit-28 sockets are bound.
extern const char kNetlinkPortDir[];
// The registration the module keeps: the registered pid, its socket, and
// the registration datagram as it arrived.
extern const char kNetlinkRegistration[];

// Message type of the requests the stand-in sends (the daemon does not
// examine it).
constexpr uint16_t kKernelRequestType = 3000;

struct NetlinkRegistration {
    int pid = 0;
    std::string port;      // path of the registered socket
    std::string datagram;  // the registration, header included
};

// The current registration; false when no daemon has registered.
bool readNetlinkRegistration(NetlinkRegistration* out);

struct KernelRequest {
    uint32_t requestId = 0;
    uint32_t opcode = 0;
    int32_t userId = 0;
    int32_t partitionId = 0;
    uint64_t inode = 0;
    int32_t pid = 0;
};

// A request as the module sends it: header (length 44, type
// kKernelRequestType, no flags) and the 28-byte payload, little-endian.
std::string encodeKernelRequest(const KernelRequest& request);

struct KernelReply {
    uint32_t length = 0;  // header fields
    uint16_t type = 0;
    uint16_t flags = 0;
    uint32_t requestId = 0;  // payload fields
    uint8_t opcode = 0;
    int16_t result = 0;
};

// Decodes a reply datagram; false when it is shorter than header plus 8.
bool decodeKernelReply(const std::string& datagram, KernelReply* out);

// The module's end of one conversation with the registered daemon.
class KernelEndpoint {
public:
    // Binds a socket of its own; check ok().
    KernelEndpoint();
    ~KernelEndpoint();
    KernelEndpoint(const KernelEndpoint&) = delete;
    KernelEndpoint& operator=(const KernelEndpoint&) = delete;

    bool ok() const { return mFd.ok(); }
    // Sends one datagram to the registered daemon; false with errno set
    // (ENOENT: nobody registered; ECONNREFUSED: the registered socket is gone).
    bool send(const std::string& datagram);
    // Waits up to timeoutMs for one datagram from the daemon.
    bool receive(std::string* datagram, int timeoutMs);

private:
    pelk::UniqueFd mFd;
    std::string mPath;
};

}  // namespace hostkernel
