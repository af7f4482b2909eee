// Kernel requests served per second by the event thread (opcode 22, the
// file found in a small tree under a simulated eCryptfs mount) against a
// bare echo on the same unit-28 seam in the same run: the echo receives
// each request and sends back 8 bytes, so the difference is the daemon's
// own work (checks, mount table, inode search, log lines).
#include <fcntl.h>
#include <kernel/ecryptfs_table.h>
#include <kernel/netlink28.h>
#include <log/log_records.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <linux/netlink.h>
#include <pthread.h>

#include <string>
#include <vector>

#include "Sandbox.h"
#include "WalkBench.h"
#include "fs_handler/FsHandlerThread.h"

namespace {

const char kMount[] = "/data/bench_requests";
constexpr int kPartition = 9;
constexpr int kRequests = 2000;
constexpr int kRounds = 5;

// The echo: registers like the daemon, then answers every datagram with 8
// bytes, without looking at it.
void* echo(void*) {
    int fd = socket(AF_NETLINK, SOCK_RAW, 28);
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    char registration[56] = {56, 0, 0, 0, static_cast<char>(0xb9), 0x0b, 1, 0};
    int pid = getpid();
    memcpy(registration + 28, &pid, sizeof(pid));
    sendto(fd, registration, sizeof(registration), 0, reinterpret_cast<sockaddr*>(&kernel), sizeof(kernel));
    char buffer[8208];
    for (;;) {
        sockaddr_nl from{};
        socklen_t fromLength = sizeof(from);
        ssize_t n = recvfrom(fd, buffer, sizeof(buffer), 0, reinterpret_cast<sockaddr*>(&from), &fromLength);
        if (n < 24) continue;
        char reply[24] = {24, 0, 0, 0, static_cast<char>(0xba), 0x0b, 1, 0};
        memcpy(reply + 16, buffer + 16, 8);
        sendto(fd, reply, sizeof(reply), 0, reinterpret_cast<sockaddr*>(&kernel), sizeof(kernel));
    }
    return nullptr;
}

bool waitForRegistration(int* seenPid, const std::string& oldPort) {
    for (int i = 0; i < 500; ++i) {
        hostkernel::NetlinkRegistration r;
        if (hostkernel::readNetlinkRegistration(&r) && r.port != oldPort) {
            *seenPid = r.pid;
            return true;
        }
        usleep(10000);
    }
    return false;
}

std::string registeredPort() {
    hostkernel::NetlinkRegistration r;
    return hostkernel::readNetlinkRegistration(&r) ? r.port : "";
}

// Requests answered per second, one at a time, as the kernel asks them.
double requestsPerSecond(const std::vector<uint64_t>& inodes, int* failures) {
    hostkernel::KernelEndpoint kernel;
    double elapsed = walkbench::seconds([&] {
        for (int i = 0; i < kRequests; ++i) {
            hostkernel::KernelRequest r;
            r.requestId = static_cast<uint32_t>(i + 1);
            r.opcode = 22;
            r.userId = 10;
            r.partitionId = kPartition;
            r.inode = inodes[static_cast<size_t>(i) % inodes.size()];
            r.pid = 1;
            std::string reply;
            hostkernel::KernelReply decoded;
            if (!kernel.send(hostkernel::encodeKernelRequest(r)) || !kernel.receive(&reply, 5000) ||
                !hostkernel::decodeKernelReply(reply, &decoded) || decoded.requestId != r.requestId)
                ++*failures;
        }
    });
    liblog_clear();
    return kRequests / elapsed;
}

}  // namespace

int main() {
    if (sim::enterSandbox() != 0) return 1;
    setenv("ANDROID_LOG_TAGS", "*:s", 1);
    std::string lower = std::string(kMount) + ".lower";
    mkdir(lower.c_str(), 0755);
    mkdir(kMount, 0755);
    if (mount(lower.c_str(), kMount, nullptr, MS_BIND, nullptr) != 0 ||
        !hostkernel::registerEcryptfsMount(kMount, lower.c_str(), 10, kPartition)) {
        perror("simulated eCryptfs mount");
        return 1;
    }
    std::vector<uint64_t> inodes;
    for (int d = 0; d < 4; ++d) {
        std::string dir = std::string(kMount) + "/dir" + std::to_string(d);
        mkdir(dir.c_str(), 0755);
        for (int f = 0; f < 10; ++f) {
            std::string file = dir + "/file" + std::to_string(f);
            int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
            if (fd >= 0) close(fd);
            struct stat st;
            if (stat(file.c_str(), &st) == 0) inodes.push_back(st.st_ino);
        }
    }

    int pid = 0, failures = 0;
    pthread_t echoThread;
    std::string before = registeredPort();
    pthread_create(&echoThread, nullptr, echo, nullptr);
    if (!waitForRegistration(&pid, before)) return 1;
    std::vector<double> echoRates;
    for (int round = 0; round < kRounds; ++round) echoRates.push_back(requestsPerSecond(inodes, &failures));

    before = registeredPort();
    FsHandlerThread::run();
    if (!waitForRegistration(&pid, before)) return 1;
    std::vector<double> engineRates;
    for (int round = 0; round < kRounds; ++round) engineRates.push_back(requestsPerSecond(inodes, &failures));

    double engine = walkbench::median(engineRates), bare = walkbench::median(echoRates);
    printf("tree: %zu files in 4 directories under %s (eCryptfs, partition_id=%d); %d requests a round, %d rounds\n",
           inodes.size(), kMount, kPartition, kRequests, kRounds);
    walkbench::summary("kernel request, opcode 22", engine > 0 ? 1e6 / engine : 0, "us", "bare echo",
                       bare > 0 ? 1e6 / bare : 0);
    printf("%-34s engine %9.0f req/s | %-14s %9.0f req/s | engine/echo %.2f  (%d unanswered)\n",
           "opcode 22, path found", engine, "bare echo", bare, bare > 0 ? engine / bare : 0.0, failures);
    return failures == 0 ? 0 : 1;
}
