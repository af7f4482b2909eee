// One datagram through the daemon's real path: sent by the simulated
// kernel over the unit-28 seam, received by the handler, checked and
// answered by FsHandlerThread::process. Beyond "no crash" it checks that
// nothing is read past the bytes that arrived (they are poisoned for the
// address sanitizer), that a rejected datagram gets no reply, and that an
// accepted one gets exactly one reply echoing its request id.
#include "DatagramTarget.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kernel/ecryptfs_table.h>
#include <kernel/netlink28.h>
#include <log/log_records.h>

#include <memory>

#include "Sandbox.h"
#include "base/UniqueFd.h"
#include "fs_handler/FsHandlerThread.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define PELK_FUZZ_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define PELK_FUZZ_ASAN 1
#endif
#ifdef PELK_FUZZ_ASAN
#include <sanitizer/asan_interface.h>
#define POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define POISON(p, n) ((void)(p), (void)(n))
#define UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace fuzzdatagram {
namespace {

const char kMount[] = "/data/fuzz";
const char* const kFiles[] = {"/data/fuzz/a.txt", "/data/fuzz/dir/b.txt", "/data/fuzz/dir/c.txt"};

struct State {
    std::unique_ptr<FsHandlerThread> thread;
    std::unique_ptr<hostkernel::KernelEndpoint> kernel;
    std::unique_ptr<ecryptfs_netlink_recvmsg> message;
    Tally tally;
};

State& state() {
    static State s;
    return s;
}

// Opcodes 25 and 29 delete what they find: put the files back.
void restoreFiles() {
    mkdir("/data/fuzz/dir", 0755);
    for (const char* file : kFiles) {
        if (access(file, F_OK) == 0) continue;
        pelk::UniqueFd made(open(file, O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    }
}

[[noreturn]] void fail(const char* what, size_t size) {
    fprintf(stderr, "fuzz_datagrams: %s (input of %zu bytes)\n", what, size);
    abort();
}

}  // namespace

bool setUp() {
    // The engine still records every line; only the echo is silenced.
    setenv("ANDROID_LOG_TAGS", "*:s", 1);
    mkdir("/data/fuzz.lower", 0755);
    mkdir(kMount, 0755);
    if (mount("/data/fuzz.lower", kMount, nullptr, MS_BIND, nullptr) != 0 ||
        !hostkernel::registerEcryptfsMount(kMount, "/data/fuzz.lower", 10, 3))
        return false;
    restoreFiles();
    State& s = state();
    s.thread = std::make_unique<FsHandlerThread>();
    s.kernel = std::make_unique<hostkernel::KernelEndpoint>();
    s.message = std::make_unique<ecryptfs_netlink_recvmsg>();
    return s.thread->handler()->fd() >= 0 && s.thread->handler()->setPid() == 0 && s.kernel->ok();
}

std::vector<std::string> seeds() {
    std::vector<std::string> out;
    const uint32_t opcodes[] = {10, 11, 12, 21, 22, 23, 24, 25, 26, 27, 28, 29, 51, 52, 53, 0x10a};
    uint32_t id = 1;
    for (uint32_t opcode : opcodes) {
        for (const char* file : kFiles) {
            struct stat st;
            hostkernel::KernelRequest r;
            r.requestId = id++;
            r.opcode = opcode;
            r.userId = 10;
            r.partitionId = 3;
            r.inode = stat(file, &st) == 0 ? st.st_ino : 1;
            r.pid = 1;
            out.push_back(hostkernel::encodeKernelRequest(r));
        }
    }
    return out;
}

const Tally& tally() { return state().tally; }

}  // namespace fuzzdatagram

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzzdatagram;
    State& s = state();
    if (!s.thread && !setUp()) fail("cannot set up the device", size);
    if (++s.tally.inputs % 256 == 0) liblog_clear();
    restoreFiles();
    std::string datagram(reinterpret_cast<const char*>(data), size);
    if (!s.kernel->send(datagram)) fail("cannot send", size);

    ecryptfs_netlink_recvmsg* message = s.message.get();
    sockaddr_nl sender{};
    unsigned int senderLength = sizeof(sender);
    int received = s.thread->handler()->recv(message, 1, 0, &senderLength);
    if (received != static_cast<int>(std::min<size_t>(size, sizeof(message->data)))) fail("datagram lost or cut", size);
    size_t valid = static_cast<size_t>(received);
    POISON(message->data + valid, sizeof(message->data) - valid);
    ecryptfs_netlink_recvctx context{&sender, message, received, 0, senderLength};
    int result = s.thread->process(&context);
    UNPOISON(message->data + valid, sizeof(message->data) - valid);

    std::string reply;
    bool answered = s.kernel->receive(&reply, 0);
    if (result != 0) {
        ++s.tally.rejected;
        if (answered) fail("a rejected datagram was answered", size);
        return 0;
    }
    ++s.tally.replied;
    hostkernel::KernelReply decoded;
    if (!answered || !hostkernel::decodeKernelReply(reply, &decoded) || reply.size() != 24)
        fail("an accepted datagram got no proper reply", size);
    // The id as it arrived; bytes that did not arrive read as zero.
    char id[4] = {0};
    if (valid > 16) memcpy(id, datagram.data() + 16, std::min<size_t>(valid - 16, sizeof(id)));
    if (decoded.requestId != netlinkwire::getU32(id)) fail("the reply's request id differs", size);
    if (s.kernel->receive(&reply, 0)) fail("two replies to one datagram", size);
    return 0;
}

// libFuzzer's start-up hook: the target runs inside the device, as the
// random driver does.
extern "C" int LLVMFuzzerInitialize(int*, char***) { return sim::enterSandbox() == 0 ? 0 : 1; }
