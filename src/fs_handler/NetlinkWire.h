// The messages on the eCryptfs module's netlink unit, byte for byte.
//
// Every datagram is a 16-byte netlink header (little-endian, as on the
// device) and a payload. The daemon sends a 40-byte registration carrying
// its pid and 8-byte replies; the kernel sends requests of which the first
// 28 payload bytes are read. The fields are read and written through the
// byte helpers below, never by casting the buffer, so a short or odd-sized
// datagram cannot make an unaligned or out-of-range access.
#pragma once

#include <linux/netlink.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>

// Netlink unit of the eCryptfs module.
constexpr int ECRYPTFS_NETLINK_UNIT = 28;

// Message types the daemon sends.
constexpr int ECRYPTFS_MSG_REGISTER = 3001;
constexpr int ECRYPTFS_MSG_REPLY = 3002;

constexpr size_t ECRYPTFS_NL_HEADER_SIZE = 16;
constexpr size_t ECRYPTFS_NL_MAX_LEN = 8192;                              // largest header length sent
constexpr size_t ECRYPTFS_NL_DATA_SIZE = ECRYPTFS_NL_HEADER_SIZE + 8192;  // 8208: one received datagram
constexpr size_t ECRYPTFS_REGISTER_SIZE = 40;
constexpr size_t ECRYPTFS_REGISTER_PID_OFFSET = 12;
constexpr size_t ECRYPTFS_REQUEST_SIZE = 28;
constexpr size_t ECRYPTFS_REPLY_SIZE = 8;
constexpr uint16_t ECRYPTFS_NL_FLAG_REQUEST = 1;

// The receive buffer the event loop owns and recv() fills.
struct ecryptfs_netlink_recvmsg {
    uint32_t type;     // the header's message type, copied by the checks
    uint32_t length;   // the header's length field, copied by the checks
    nlmsghdr* header;  // the start of data
    char data[ECRYPTFS_NL_DATA_SIZE];
    char* payload;  // behind the header once the checks passed; null until then
};

// What the loop hands to FsHandlerThread::process for one datagram.
struct ecryptfs_netlink_recvctx {
    sockaddr_nl* address;  // the loop's own sender record (the receive leaves it zero)
    ecryptfs_netlink_recvmsg* message;
    int64_t received;        // result of recv()
    uint16_t replyLength;    // set by handleMessage
    uint32_t addressLength;  // as the receive returned it
};

// One request of the kernel, decoded from its first 28 payload bytes.
struct EcryptfsRequest {
    uint32_t requestId;
    uint32_t opcode;
    int32_t userId;
    int32_t partitionId;
    uint64_t inode;
    int32_t pid;
};

namespace netlinkwire {

inline uint16_t getU16(const char* p) {
    const unsigned char* b = reinterpret_cast<const unsigned char*>(p);
    return static_cast<uint16_t>(b[0] | (b[1] << 8));
}
inline uint32_t getU32(const char* p) {
    const unsigned char* b = reinterpret_cast<const unsigned char*>(p);
    return static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 | static_cast<uint32_t>(b[2]) << 16 |
           static_cast<uint32_t>(b[3]) << 24;
}
inline uint64_t getU64(const char* p) { return getU32(p) | static_cast<uint64_t>(getU32(p + 4)) << 32; }

inline void putU16(char* p, uint16_t v) {
    p[0] = static_cast<char>(v & 0xff);
    p[1] = static_cast<char>(v >> 8);
}
inline void putU32(char* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<char>((v >> (8 * i)) & 0xff);
}

// The 16-byte header: length, type, flags, sequence number, sender port.
inline void putHeader(char* p, uint32_t length, uint16_t type, uint16_t flags) {
    putU32(p, length);
    putU16(p + 4, type);
    putU16(p + 6, flags);
    putU32(p + 8, 0);
    putU32(p + 12, 0);
}

inline EcryptfsRequest decodeRequest(const char* payload) {
    EcryptfsRequest r;
    r.requestId = getU32(payload);
    r.opcode = getU32(payload + 4);
    r.userId = static_cast<int32_t>(getU32(payload + 8));
    r.partitionId = static_cast<int32_t>(getU32(payload + 12));
    r.inode = getU64(payload + 16);
    r.pid = static_cast<int32_t>(getU32(payload + 24));
    return r;
}

// The 8-byte reply: request id, the opcode's low byte, a reserved byte and
// the 16-bit result.
inline void encodeReply(char* out, uint32_t requestId, uint8_t opcode, int16_t result) {
    putU32(out, requestId);
    out[4] = static_cast<char>(opcode);
    out[5] = 0;
    putU16(out + 6, static_cast<uint16_t>(result));
}

}  // namespace netlinkwire
