// The kernel event thread: registers with the eCryptfs module, waits for
// its requests, resolves each request's file (partition id and inode) to a
// path, acts on it by opcode (marking trees, DLP bookkeeping, audit lines)
// and answers every well-formed request. It runs for the life of the
// process and starts over with a new socket when the socket or the
// registration fails.
#pragma once

#include <pthread.h>

#include "fs_handler/FsNetlinkHandler.h"

class FsHandlerThread {
public:
    // Logs its creation and opens the handler on unit 28.
    FsHandlerThread();
    // Logs its end and closes the handler's socket.
    ~FsHandlerThread();
    FsHandlerThread(const FsHandlerThread&) = delete;
    FsHandlerThread& operator=(const FsHandlerThread&) = delete;

    // Starts the thread (default attributes) and answers the handle the
    // creation wrote, not a status: the manager's start-up tests it against
    // 0 and so logs "not started" for a thread that runs (kept).
    static pthread_t run();
    // The thread's body: one object and one main() per life, for ever.
    static void* runThread(void* unused);
    // One life of the event loop; answers errno when the socket could not be
    // opened or the registration failed, and otherwise never returns.
    int main();
    // Checks one received datagram (an ecryptfs_netlink_recvctx) and sends
    // the reply; 0, or -1 for a datagram that gets no reply.
    int process(void* context);

    // Dispatches one request payload (its first 28 bytes are read) and
    // answers a malloc'd 8-byte reply with *replyLength set to 8, or null
    // for a null payload. The caller frees the reply.
    static char* handleMessage(char* payload, unsigned short* replyLength);
    // DLP opcodes 21..29 on a found path: 0, or -95 for any other opcode.
    static int handleMessageDLP(int opcode, int userId, int pid, unsigned long inode, char* path);
    // Writes (and broadcasts with 610) the DLP audit line when the audit
    // state enables the opcode; always 0.
    static int handleNotifyAuditDLP(int opcode, int userId, int pid, unsigned long inode, char* path);
    // Audit lines of opcodes 51..53: 0, or -95 for any other opcode.
    static int handleMessageAudit(int opcode, int userId, int pid, char* path);
    // Broadcasts msg with code to every client of the manager's "pelk"
    // listener, when the manager exists. Offered to other modules.
    static void notifyEvent(int code, char const* msg, bool addErrno);

    FsNetlinkHandler* handler() const { return mHandler; }

private:
    FsNetlinkHandler* mHandler;
};

// The pending-inode step alone for a request whose path was not found:
// opcodes 23 and 24 remember (inode, pid), 0 when stored and -1 otherwise;
// 26 is logged and answers 0; any other opcode answers -1.
int handle_inode_path_transition(int opcode, int pid, unsigned long inode);
