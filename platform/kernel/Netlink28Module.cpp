// The module stand-in of unit 28: its registration record, the byte layout
// of its requests and of the daemon's replies, and its endpoint.
#include <kernel/netlink28.h>

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>

#include "Netlink28Module.h"
#include "base/FileIo.h"
#include "base/UniqueFd.h"

namespace hostkernel {

const char kNetlinkPortDir[] = "/dev/netlink28";
const char kNetlinkRegistration[] = "/sim/kernel/netlink28";

namespace {

constexpr size_t kHeaderSize = 16;
constexpr size_t kRegistrationPidOffset = kHeaderSize + 12;
constexpr uint16_t kRegistrationType = 3001;

uint32_t readLe(const std::string& bytes, size_t offset, int width) {
    uint32_t value = 0;
    for (int i = width - 1; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[offset + i]);
    return value;
}

void appendLe(std::string* out, uint64_t value, int width) {
    for (int i = 0; i < width; ++i) out->push_back(static_cast<char>((value >> (8 * i)) & 0xff));
}

std::string hex(const std::string& bytes) {
    std::string out;
    char pair[3];
    for (unsigned char c : bytes) {
        snprintf(pair, sizeof(pair), "%02x", c);
        out += pair;
    }
    return out;
}

std::string unhex(const std::string& text) {
    std::string out;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        out.push_back(static_cast<char>(strtol(text.substr(i, 2).c_str(), nullptr, 16)));
    return out;
}

}  // namespace

bool isRegistration(const std::string& datagram) {
    return datagram.size() >= kHeaderSize && readLe(datagram, 4, 2) == kRegistrationType;
}

bool recordRegistration(const std::string& datagram, const char* port) {
    if (datagram.size() < kRegistrationPidOffset + 4) {
        errno = EINVAL;
        return false;
    }
    int pid = static_cast<int32_t>(readLe(datagram, kRegistrationPidOffset, 4));
    std::string record = std::to_string(pid) + '\n' + port + '\n' + hex(datagram) + '\n';
    mkdir("/sim/kernel", 0755);
    // Replaced whole, so a reader never sees half of a registration.
    std::string temporary = std::string(kNetlinkRegistration) + ".new." + std::to_string(getpid());
    pelk::UniqueFd fd(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!fd.ok() || !pelk::writeFully(fd.get(), record.data(), record.size())) return false;
    fd.reset();
    return rename(temporary.c_str(), kNetlinkRegistration) == 0;
}

bool readNetlinkRegistration(NetlinkRegistration* out) {
    pelk::UniqueFd fd(open(kNetlinkRegistration, O_RDONLY | O_CLOEXEC));
    std::string text;
    if (!fd.ok() || !pelk::readAll(fd.get(), &text)) return false;
    size_t first = text.find('\n');
    size_t second = first == std::string::npos ? first : text.find('\n', first + 1);
    if (second == std::string::npos) return false;
    out->pid = atoi(text.substr(0, first).c_str());
    out->port = text.substr(first + 1, second - first - 1);
    size_t end = text.find('\n', second + 1);
    out->datagram = unhex(text.substr(second + 1, end == std::string::npos ? end : end - second - 1));
    return true;
}

std::string encodeKernelRequest(const KernelRequest& request) {
    std::string out;
    appendLe(&out, kHeaderSize + 28, 4);
    appendLe(&out, kKernelRequestType, 2);
    appendLe(&out, 0, 2);  // flags
    appendLe(&out, 0, 4);  // sequence
    appendLe(&out, 0, 4);  // the kernel's port
    appendLe(&out, request.requestId, 4);
    appendLe(&out, request.opcode, 4);
    appendLe(&out, static_cast<uint32_t>(request.userId), 4);
    appendLe(&out, static_cast<uint32_t>(request.partitionId), 4);
    appendLe(&out, request.inode, 8);
    appendLe(&out, static_cast<uint32_t>(request.pid), 4);
    return out;
}

bool decodeKernelReply(const std::string& datagram, KernelReply* out) {
    if (datagram.size() < kHeaderSize + 8) return false;
    out->length = readLe(datagram, 0, 4);
    out->type = static_cast<uint16_t>(readLe(datagram, 4, 2));
    out->flags = static_cast<uint16_t>(readLe(datagram, 6, 2));
    out->requestId = readLe(datagram, kHeaderSize, 4);
    out->opcode = static_cast<uint8_t>(datagram[kHeaderSize + 4]);
    out->result = static_cast<int16_t>(readLe(datagram, kHeaderSize + 6, 2));
    return true;
}

KernelEndpoint::KernelEndpoint() {
    static std::atomic<int> serial{0};
    mkdir(kNetlinkPortDir, 0700);
    pelk::UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd.ok()) return;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s/kernel.%d.%d", kNetlinkPortDir, getpid(), serial++);
    unlink(address.sun_path);
    if (bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) return;
    mPath = address.sun_path;
    mFd = std::move(fd);
}

KernelEndpoint::~KernelEndpoint() {
    if (!mFd.ok()) return;
    mFd.reset();  // closed before its name goes
    unlink(mPath.c_str());
}

bool KernelEndpoint::send(const std::string& datagram) {
    NetlinkRegistration registration;
    if (!readNetlinkRegistration(&registration)) {
        errno = ENOENT;
        return false;
    }
    sockaddr_un daemon{};
    daemon.sun_family = AF_UNIX;
    snprintf(daemon.sun_path, sizeof(daemon.sun_path), "%s", registration.port.c_str());
    return sendto(mFd.get(), datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&daemon),
                  sizeof(daemon)) == static_cast<ssize_t>(datagram.size());
}

bool KernelEndpoint::receive(std::string* datagram, int timeoutMs) {
    pollfd watch{mFd.get(), POLLIN, 0};
    if (poll(&watch, 1, timeoutMs) != 1) return false;
    char buffer[65536];
    ssize_t received = recv(mFd.get(), buffer, sizeof(buffer), MSG_DONTWAIT);
    if (received < 0) return false;
    datagram->assign(buffer, static_cast<size_t>(received));
    return true;
}

}  // namespace hostkernel
