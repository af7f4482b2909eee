// The eCryptfs module's side for tests: a simulated eCryptfs mount that
// carries a partition id, and request/reply exchanges with whoever
// registered on netlink unit 28 (an in-process handler or a pelkd).
#pragma once

#include <sys/mount.h>
#include <sys/stat.h>

#include <kernel/ecryptfs_table.h>
#include <kernel/netlink28.h>

#include <string>

#include "support/Files.h"

namespace kernel {

using hostkernel::KernelReply;
using hostkernel::KernelRequest;

// Binds a fresh lower directory at point and lists it in the mount tables
// as an eCryptfs mount of userId with this partition id.
inline bool mountEcryptfs(const std::string& point, int userId, int partitionId) {
    std::string lower = point + ".lower";
    return testfs::makeDirs(lower) && testfs::makeDirs(point) &&
           mount(lower.c_str(), point.c_str(), nullptr, MS_BIND, nullptr) == 0 &&
           hostkernel::registerEcryptfsMount(point.c_str(), lower.c_str(), userId, partitionId);
}

inline unsigned long inodeOf(const std::string& path) { return testfs::statOf(path).st_ino; }

// One endpoint per test: requests go to the registered daemon, replies
// come back here.
class Kernel {
public:
    bool send(const std::string& datagram) { return mEndpoint.send(datagram); }
    bool request(const KernelRequest& request) { return send(hostkernel::encodeKernelRequest(request)); }
    // The next datagram within timeoutMs, raw.
    bool receiveRaw(std::string* datagram, int timeoutMs = 5000) { return mEndpoint.receive(datagram, timeoutMs); }
    bool receive(KernelReply* reply, int timeoutMs = 5000) {
        std::string datagram;
        return receiveRaw(&datagram, timeoutMs) && hostkernel::decodeKernelReply(datagram, reply);
    }
    // Sends a request and answers its reply's result; -1000 without a reply.
    int exchange(const KernelRequest& r) {
        KernelReply reply;
        return request(r) && receive(&reply) && reply.requestId == r.requestId ? reply.result : -1000;
    }

private:
    hostkernel::KernelEndpoint mEndpoint;
};

inline KernelRequest makeRequest(uint32_t id, uint32_t opcode, int userId, int partitionId, uint64_t inode, int pid) {
    KernelRequest r;
    r.requestId = id;
    r.opcode = opcode;
    r.userId = userId;
    r.partitionId = partitionId;
    r.inode = inode;
    r.pid = pid;
    return r;
}

}  // namespace kernel
