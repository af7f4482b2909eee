// The DLP and audit opcodes on a found path: the DLP library's bookkeeping,
// expired files, and the audit lines, of which the DLP ones are broadcast
// to the clients of "pelk" with code 610.
#define LOG_TAG "pelkd"

#include <errno.h>
#include <log/log.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <unistd.h>

#include <dlp/dlp.h>

#include "command/CommandListenerEnterprise.h"
#include "fs_handler/FsHandlerThread.h"
#include "manager/Pelk.h"

namespace {

constexpr size_t kLineSize = 4096;
constexpr int kAuditBroadcastCode = 610;

// The audit-state bit that enables an opcode's DLP audit line; -1 for the
// opcodes audited whatever the state, 0 for those never audited.
int auditBit(int opcode) {
    switch (opcode) {
        case 21:
        case 28: return 2;
        case 23:
        case 24: return 1;
        case 26: return 4;
        case 27: return 16;
        case 25:
        case 29: return -1;
        default: return 0;
    }
}

// An init (23 or 24) whose file is not there yet: the inode waits for its path.
void rememberPendingInode(int opcode, unsigned long inode, int pid) {
    if (handle_inode_path_transition(opcode, pid, inode) != 0)
        SLOGE("DLP_LIBPELK :  inode_path transition method failed! Unable to put in map!");
}

void initWhitelisted(int userId, int pid, unsigned long inode, char* path) {
    timeval now{};
    gettimeofday(&now, nullptr);
    long expiry = now.tv_sec + get_expiryAfter_time(userId);
    SLOGD("DLP_LIBPELK :  pid[%d] init file came for WHITELISTED [%s]\n", pid, path);
    if (set_dlp_file_expiry_time(path, expiry) != 0) {
        int error = errno;
        SLOGE("DLP_LIBPELK : setxattr(%s, setxattr error - %d, %s\n", path, error, strerror(error));
        if (error == ENOENT) rememberPendingInode(23, inode, pid);
    } else {
        SLOGD("DLP_LIBPELK : setxattr OK\n");
    }
}

void initRestricted(int userId, int pid, unsigned long inode, char* path) {
    SLOGD("DLP_LIBPELK :  pid[%d] init file came for RESTRICTED [%s]\n", pid, path);
    if (setExpiryforFile(pid, path, userId) == 2) {
        SLOGE("DLP_LIBPELK :  Error :: ENOENT from INIT_RESTRICTED");
        rememberPendingInode(24, inode, pid);
    }
}

void expiredAccessed(int pid, char* path) {
    SLOGD("DLP_LIBPELK :  pid[%d] accessed expired file: %s\n", pid, path);
    if (unlink(path) != 0) SLOGE("DLP_LIBPELK : unlink file with path: %s failed\n", path);
}

void renamed(int userId, unsigned long inode, char* path) {
    int pendingPid = getPidByInode(inode);
    SLOGD("DLP_LIBPELK :  pid obtained from map: [%d] for inode:[%lu]", pendingPid, inode);
    if (pendingPid < 1) return;
    setExpiryforFile(pendingPid, path, userId);
    if (clearPendingInode(inode)) SLOGD("DLP_LIBPELK :  inode is cleared from map");
}

}  // namespace

int FsHandlerThread::handleMessageDLP(int opcode, int userId, int pid, unsigned long inode, char* path) {
    switch (opcode) {
        case 21:
            SLOGD("DLP_LIBPELK :  pid[%d] opened file %s\n", pid, path);
            addOrUpdateMapEntry(pid, path);
            break;
        case 22: SLOGD("DLP_LIBPELK :  pid[%d] closed file %s\n", pid, path); return 0;
        case 23: initWhitelisted(userId, pid, inode, path); break;
        case 24: initRestricted(userId, pid, inode, path); break;
        case 25:
        case 29: expiredAccessed(pid, path); break;
        case 26: renamed(userId, inode, path); break;
        case 27:
        case 28: break;
        default: return -EOPNOTSUPP;
    }
    handleNotifyAuditDLP(opcode, userId, pid, inode, path);
    return 0;
}

int FsHandlerThread::handleNotifyAuditDLP(int opcode, int userId, int pid, unsigned long inode, char* path) {
    int state = getDLPAuditLogState();
    int bit = auditBit(opcode);
    if (bit == 0) SLOGE("DLP_LIBPELK : AUDIT: unsupported DLP audit opcode: [%d]\n", opcode);
    if (bit != 0 && (bit < 0 || (state & bit) != 0)) {
        char line[kLineSize];
        // Only the inode's low 32 bits appear, as a signed number: the
        // line's readers have always seen it so.
        snprintf(line, sizeof(line), "%d %d %d %d %s", userId, opcode, pid, static_cast<int>(inode), path);
        SLOGD("DLP_LIBPELK : AUDIT: %s\n", line);
        notifyEvent(kAuditBroadcastCode, line, false);
    } else {
        SLOGD("DLP_LIBPELK : <handleMessageAuditDLP> Audit logging is not enabled for opcode[%d], logState[%d]", opcode,
              state);
    }
    return 0;
}

int FsHandlerThread::handleMessageAudit(int opcode, int userId, int pid, char* path) {
    char line[kLineSize];
    switch (opcode) {
        case 51: snprintf(line, sizeof(line), "user_id[%d]/pid[%d] failed to encrypt [%s]", userId, pid, path); break;
        case 52: snprintf(line, sizeof(line), "user_id[%d]/pid[%d] failed to decrypt [%s]", userId, pid, path); break;
        case 53:
            snprintf(line, sizeof(line), "user_id[%d]/pid[%d] failed to access file [%s]", userId, pid, path);
            break;
        default: SLOGE("AUDIT: unsupported audit opcode: [%d]\n", opcode); return -EOPNOTSUPP;
    }
    SLOGE("AUDIT: %s\n", line);
    return 0;
}

void FsHandlerThread::notifyEvent(int code, char const* msg, bool addErrno) {
    // Never builds the manager: before it exists there is nobody to tell.
    Pelk* manager = Pelk::sInstance;
    if (manager != nullptr && manager->mListener != nullptr) manager->mListener->sendBroadcast(code, msg, addErrno);
}
