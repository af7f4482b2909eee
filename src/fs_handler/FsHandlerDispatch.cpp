// One datagram of the kernel: its checks, the request's path and opcode,
// and the 8-byte reply.
#define LOG_TAG "pelkd"

#include <errno.h>
#include <log/log.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include <dlp/dlp.h>

#include "base/UniqueHandle.h"
#include "fs_handler/FsHandlerThread.h"
#include "fs_handler/InodePaths.h"

namespace {

constexpr size_t kPathSize = 4096;
constexpr unsigned int kSenderAddressSize = 12;

void logPendingInode(unsigned long inode) {
    SLOGE("DLP_LIBPELK :  find_path_by_inode failed in init/init_restricted case, put inode[%lu] in map", inode);
}

void logRenamePending(unsigned long inode) {
    SLOGE("DLP_LIBPELK :  find_path_by_inode failed in rename case,inode[%lu] in map", inode);
}

// The action for a found path; the reply's result.
int dispatchFound(const EcryptfsRequest& request, char* path) {
    int opcode = static_cast<int>(request.opcode);
    unsigned long inode = request.inode;
    if (opcode == 10 || opcode == 11) {
        if (opcode == 10)
            recursive_set_sensitive(request.userId, path);
        else
            recursive_set_protected(request.userId, path);
        return 0;
    }
    if (opcode >= 21 && opcode <= 29)
        return FsHandlerThread::handleMessageDLP(opcode, request.userId, request.pid, inode, path);
    if (opcode >= 51 && opcode <= 53)
        return FsHandlerThread::handleMessageAudit(opcode, request.userId, request.pid, path);
    return -EOPNOTSUPP;
}

// A request whose path was not found: pending inodes, audit lines; -2.
int dispatchNotFound(const EcryptfsRequest& request) {
    int opcode = static_cast<int>(request.opcode);
    if (opcode == 23 || opcode == 24 || opcode == 26) {
        if (handle_inode_path_transition(opcode, request.pid, request.inode) == 0)
            SLOGD("DLP_LIBPELK :  inode_path transition handled successfully !");
        else
            SLOGE("DLP_LIBPELK :  inode_path transition method failed! Unable to put in map!");
    } else if (opcode >= 51 && opcode <= 53) {
        char unknown[] = "unknown file";
        FsHandlerThread::handleMessageAudit(opcode, request.userId, request.pid, unknown);
    }
    return -ENOENT;
}

}  // namespace

int handle_inode_path_transition(int opcode, int pid, unsigned long inode) {
    if (opcode == 23 || opcode == 24) {
        logPendingInode(inode);
        return putPendingInodeValue(inode, pid) ? 0 : -1;
    }
    if (opcode == 26) {
        logRenamePending(inode);
        return 0;
    }
    return -1;
}

char* FsHandlerThread::handleMessage(char* payload, unsigned short* replyLength) {
    if (payload == nullptr) return nullptr;
    EcryptfsRequest request = netlinkwire::decodeRequest(payload);
    SLOGE("%s :: partition_id[%d] ino[%lu]", "handleMessage", request.partitionId,
          static_cast<unsigned long>(request.inode));
    char path[kPathSize] = {0};
    char fsType[] = "ecryptfs";
    int result;
    if (find_path_by_inode(request.partitionId, request.inode, fsType, path)) {
        SLOGE("find_path_by_inode found : %s(%lu)", path, static_cast<unsigned long>(request.inode));
        result = dispatchFound(request, path);
    } else {
        result = dispatchNotFound(request);
    }
    *replyLength = ECRYPTFS_REPLY_SIZE;
    char* reply = static_cast<char*>(malloc(ECRYPTFS_REPLY_SIZE));
    if (reply == nullptr) return nullptr;
    uint8_t opcodeByte = static_cast<uint8_t>(request.opcode & 0xff);
    int16_t shortResult = static_cast<int16_t>(result);
    netlinkwire::encodeReply(reply, request.requestId, opcodeByte, shortResult);
    SLOGE("result : req_id[%d], opcode[%d] ret[%d]", static_cast<int>(request.requestId), opcodeByte, shortResult);
    return reply;
}

int FsHandlerThread::process(void* context) {
    auto* ctx = static_cast<ecryptfs_netlink_recvctx*>(context);
    if (ctx->addressLength != kSenderAddressSize) {
        SLOGE("%s: Protocol fault, error: %s", "process", strerror(EPROTO));
        return -1;
    }
    if (ctx->address->nl_pid != 0) {
        SLOGE("%s: Invalid netlink pid received, expected 0 got: %d", "process",
              static_cast<int>(ctx->address->nl_pid));
        return -1;
    }
    ecryptfs_netlink_recvmsg* msg = ctx->message;
    msg->payload = nullptr;
    msg->header = reinterpret_cast<nlmsghdr*>(msg->data);
    // Compared unsigned: a failed receive (-1) passes and the record's
    // previous datagram is handled again, as the loop always has.
    uint64_t received = static_cast<uint64_t>(ctx->received);
    // Only bytes that arrived are read: a header cut short reads as zeros.
    char header[ECRYPTFS_NL_HEADER_SIZE] = {0};
    memcpy(header, msg->data, std::min<uint64_t>(received, sizeof(header)));
    msg->type = netlinkwire::getU16(header + 4);
    msg->length = netlinkwire::getU32(header);
    if (received < ECRYPTFS_NL_HEADER_SIZE || msg->length < ECRYPTFS_NL_HEADER_SIZE || msg->length > received) {
        int error = ctx->received == static_cast<int64_t>(ECRYPTFS_NL_DATA_SIZE) ? EFBIG : EBADE;
        SLOGE("Bad kernel response %s", strerror(error));
        return -1;
    }
    msg->payload = msg->data + ECRYPTFS_NL_HEADER_SIZE;
    // The request is read from the bytes that arrived: a payload shorter
    // than a request reads as if the rest were zero, never as what an
    // earlier datagram left in the record.
    char request[ECRYPTFS_REQUEST_SIZE] = {0};
    uint64_t arrived = std::min<uint64_t>(received, sizeof(msg->data)) - ECRYPTFS_NL_HEADER_SIZE;
    memcpy(request, msg->payload, std::min<uint64_t>(arrived, sizeof(request)));
    pelk::HeapBlock<char> reply(handleMessage(request, &ctx->replyLength));
    if (!reply.get()) return -1;
    mHandler->send(ECRYPTFS_MSG_REPLY, reply.get(), ctx->replyLength);
    return 0;
}
