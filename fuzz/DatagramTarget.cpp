// One datagram through the daemon's real path: sent by the simulated
// kernel over the unit-28 seam, received by the handler, checked and
// answered by FsHandlerThread::process. Beyond "no crash" it checks that
// nothing is read past the bytes that arrived (they are poisoned for the
// address sanitizer), that a rejected datagram gets no reply, and that an
// accepted one gets exactly one reply echoing its request id.
//
// The mount holds three files whose inode numbers change from run to run:
// an inode field of 1, 2 or 3 stands for theirs, so that a corpus file can
// name them.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kernel/ecryptfs_table.h>
#include <kernel/netlink28.h>

#include <memory>

#include "FuzzCheck.h"
#include "FuzzDevice.h"
#include "base/UniqueFd.h"
#include "fs_handler/FsHandlerThread.h"
#include "fs_handler/NetlinkWire.h"

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

namespace {

const char kMount[] = "/data/fuzz";
const char* const kFiles[] = {"/data/fuzz/a.txt", "/data/fuzz/dir/b.txt", "/data/fuzz/dir/c.txt"};

struct State {
    std::unique_ptr<FsHandlerThread> thread;
    std::unique_ptr<hostkernel::KernelEndpoint> kernel;
    std::unique_ptr<ecryptfs_netlink_recvmsg> message;
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

const char kTarget[] = "fuzz_datagrams";

// Where the inode of a request lies in the datagram: after the header, the
// request id, opcode, user and partition.
const size_t kInodeOffset = ECRYPTFS_NL_HEADER_SIZE + 16;

// An inode field of 1 to 3 becomes the number of that file of the mount.
void nameRealInode(std::string* datagram) {
    if (datagram->size() < kInodeOffset + 8) return;
    char* field = &(*datagram)[kInodeOffset];
    uint64_t inode = netlinkwire::getU64(field);
    struct stat st;
    if (inode < 1 || inode > 3 || stat(kFiles[inode - 1], &st) != 0) return;
    netlinkwire::putU32(field, static_cast<uint32_t>(st.st_ino));
    netlinkwire::putU32(field + 4, static_cast<uint32_t>(static_cast<uint64_t>(st.st_ino) >> 32));
}

// Boots what the target needs: an eCryptfs mount with partition id 3
// holding a few files, and a registered handler.
bool setUp() {
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    State& s = state();
    if (!s.thread && !setUp()) fuzzcheck::fail(kTarget, "cannot set up the device", size);
    fuzzdevice::clearLogWhenDue();
    restoreFiles();
    std::string datagram(reinterpret_cast<const char*>(data), size);
    nameRealInode(&datagram);
    if (!s.kernel->send(datagram)) fuzzcheck::fail(kTarget, "cannot send", size);

    ecryptfs_netlink_recvmsg* message = s.message.get();
    sockaddr_nl sender{};
    unsigned int senderLength = sizeof(sender);
    int received = s.thread->handler()->recv(message, 1, 0, &senderLength);
    if (received != static_cast<int>(std::min<size_t>(size, sizeof(message->data))))
        fuzzcheck::fail(kTarget, "datagram lost or cut", size);
    size_t valid = static_cast<size_t>(received);
    POISON(message->data + valid, sizeof(message->data) - valid);
    ecryptfs_netlink_recvctx context{&sender, message, received, 0, senderLength};
    int result = s.thread->process(&context);
    UNPOISON(message->data + valid, sizeof(message->data) - valid);

    std::string reply;
    bool answered = s.kernel->receive(&reply, 0);
    if (result != 0) {
        if (answered) fuzzcheck::fail(kTarget, "a rejected datagram was answered", size);
        return 0;
    }
    hostkernel::KernelReply decoded;
    if (!answered || !hostkernel::decodeKernelReply(reply, &decoded) || reply.size() != 24)
        fuzzcheck::fail(kTarget, "an accepted datagram got no proper reply", size);
    // The id as it arrived; bytes that did not arrive read as zero.
    char id[4] = {0};
    if (valid > 16) memcpy(id, datagram.data() + 16, std::min<size_t>(valid - 16, sizeof(id)));
    if (decoded.requestId != netlinkwire::getU32(id)) fuzzcheck::fail(kTarget, "the reply's request id differs", size);
    if (s.kernel->receive(&reply, 0)) fuzzcheck::fail(kTarget, "two replies to one datagram", size);
    return 0;
}

// The target runs inside the device.
extern "C" int LLVMFuzzerInitialize(int*, char***) { return fuzzdevice::enter() == 0 ? 0 : 1; }
