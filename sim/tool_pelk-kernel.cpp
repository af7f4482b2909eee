// pelk-kernel: the eCryptfs module's side of netlink unit 28, by hand. It
// sends one datagram to the daemon that registered last and prints every
// reply that comes back.
//
//   pelk-kernel request [--id N] [--wait MS] <opcode> <user> <partition id> <inode> <pid>
//   pelk-kernel raw [--wait MS] <hex bytes>     (the whole datagram, header included)
//   pelk-kernel status                          (who is registered)
//   pelk-kernel mounts                          (eCryptfs mounts: point and partition id)
//
// A request waits up to 5000 ms (--wait) for its reply and exits 0 when one
// came; raw bytes wait 1000 ms and print whatever came (a malformed datagram
// gets none). Replies print as
//   reply: id=<id> opcode=<byte> result=<result> (length <n>, type <t>, flags <f>)
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <kernel/netlink28.h>

#include <string>
#include <vector>

#include "base/UniqueHandle.h"
#include "process/ProcFs.h"

namespace {

int usage() {
    fprintf(stderr,
            "usage: pelk-kernel request [--id N] [--wait MS] <opcode> <user> <partition id> <inode> <pid>\n"
            "       pelk-kernel raw [--wait MS] <hex bytes>\n"
            "       pelk-kernel status\n"
            "       pelk-kernel mounts\n");
    return 2;
}

bool parseNumber(const char* text, long long* out) {
    char* end = nullptr;
    errno = 0;
    *out = strtoll(text, &end, 0);
    return errno == 0 && end != text && *end == '\0';
}

bool parseHex(const std::string& text, std::string* out) {
    std::string digits;
    for (char c : text)
        if (c != ' ' && c != ':') digits += c;
    if (digits.size() % 2 != 0) return false;
    for (size_t i = 0; i < digits.size(); i += 2) {
        long long byte;
        if (!parseNumber(("0x" + digits.substr(i, 2)).c_str(), &byte)) return false;
        out->push_back(static_cast<char>(byte));
    }
    return true;
}

void printReply(const std::string& datagram) {
    hostkernel::KernelReply reply;
    if (!hostkernel::decodeKernelReply(datagram, &reply)) {
        printf("reply: %zu bytes, too short for a reply\n", datagram.size());
        return;
    }
    printf("reply: id=%u opcode=%u result=%d (length %u, type %u, flags %u)\n", reply.requestId, reply.opcode,
           reply.result, reply.length, reply.type, reply.flags);
}

// Sends the datagram and prints the replies within waitMs; answers the
// number printed, or -1 when it could not be sent.
int exchange(const std::string& datagram, int waitMs, bool untilFirst) {
    hostkernel::KernelEndpoint endpoint;
    if (!endpoint.ok() || !endpoint.send(datagram)) {
        fprintf(stderr, "pelk-kernel: cannot reach the registered daemon: %s\n",
                errno == ENOENT ? "nobody registered" : strerror(errno));
        return -1;
    }
    int replies = 0;
    for (std::string reply; endpoint.receive(&reply, waitMs);) {
        printReply(reply);
        fflush(stdout);
        ++replies;
        if (untilFirst) break;
    }
    if (replies == 0) printf("no reply within %d ms\n", waitMs);
    return replies;
}

}  // namespace

// The eCryptfs lines of the mount table as the device's kernel shows them
// (a shell's grep sees the host's view): "<point> partition_id=<N>".
int listMounts() {
    pelk::UniqueFile table(fopen("/proc/mounts", "re"));
    if (!table) return 1;
    pelk::forEachMountLine(table.get(), [](const char* line) {
        char device[256], point[256], type[256], options[256];
        if (sscanf(line, "%255s %255s %255s %255s", device, point, type, options) != 4) return false;
        if (strcmp(type, "ecryptfs") != 0) return false;
        const char* id = strstr(options, "partition_id=");
        printf("%s %s\n", point, id ? id : "partition_id=-1");
        return false;
    });
    return 0;
}

int main(int argc, char** argv) {
    if (argc < 2) return usage();
    std::string verb = argv[1];
    std::vector<std::string> args(argv + 2, argv + argc);
    if (verb == "mounts") return listMounts();
    if (verb == "status") {
        hostkernel::NetlinkRegistration registration;
        if (!hostkernel::readNetlinkRegistration(&registration)) {
            printf("nobody registered\n");
            return 1;
        }
        printf("registered: pid %d at %s\n", registration.pid, registration.port.c_str());
        return 0;
    }
    long long id = 1;
    long long waitMs = verb == "raw" ? 1000 : 5000;
    while (args.size() >= 2 && (args[0] == "--id" || args[0] == "--wait")) {
        if (!parseNumber(args[1].c_str(), args[0] == "--id" ? &id : &waitMs)) return usage();
        args.erase(args.begin(), args.begin() + 2);
    }
    if (verb == "raw") {
        std::string datagram;
        std::string text;
        for (const std::string& a : args) text += a;
        if (args.empty() || !parseHex(text, &datagram)) return usage();
        return exchange(datagram, static_cast<int>(waitMs), false) < 0 ? 1 : 0;
    }
    if (verb != "request" || args.size() != 5) return usage();
    long long n[5];
    for (int i = 0; i < 5; ++i)
        if (!parseNumber(args[i].c_str(), &n[i])) return usage();
    hostkernel::KernelRequest request;
    request.requestId = static_cast<uint32_t>(id);
    request.opcode = static_cast<uint32_t>(n[0]);
    request.userId = static_cast<int32_t>(n[1]);
    request.partitionId = static_cast<int32_t>(n[2]);
    request.inode = static_cast<uint64_t>(n[3]);
    request.pid = static_cast<int32_t>(n[4]);
    printf("sent: id=%u opcode=%u user=%d partition_id=%d inode=%llu pid=%d\n", request.requestId, request.opcode,
           request.userId, request.partitionId, static_cast<unsigned long long>(request.inode), request.pid);
    return exchange(hostkernel::encodeKernelRequest(request), static_cast<int>(waitMs), true) == 1 ? 0 : 1;
}
