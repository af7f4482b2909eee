// One connected client of a SocketListener (host edition: platform/sysutils).
//
// Replies are "<code> <seq> <text>" (or "<code> <text>" without sequence
// numbers) followed by one NUL byte. Each message is written whole under the
// client's own write lock, so a broadcast sent from another thread never
// interleaves with a reply. Writes never raise SIGPIPE, are retried on EINTR
// and continued after a partial write.
//
// A client is reference counted: the listener holds one reference while the
// client is connected, a broadcast takes one while it writes, so an object
// stays valid until the last user lets go even if the peer hangs up.
#pragma once

#include <sys/types.h>

#include <mutex>
#include <string>

#include "base/UniqueFd.h"

class SocketClient {
public:
    // With owned, the client closes the socket when it is destroyed. The
    // peer's credentials are read here (SO_PEERCRED); -1 when unavailable.
    SocketClient(int socket, bool owned, bool useCmdNum);
    virtual ~SocketClient();
    SocketClient(const SocketClient&) = delete;
    SocketClient& operator=(const SocketClient&) = delete;

    int getSocket() const { return mSocket; }
    pid_t getPid() const { return mPid; }
    uid_t getUid() const { return mUid; }
    gid_t getGid() const { return mGid; }

    // Sequence number of the command being answered.
    void setCmdNum(int cmdNum);
    int getCmdNum() const { return mCmdNum; }

    // "<code> <seq> <msg>" (or "<code> <msg>" without sequence numbers),
    // then a NUL. With addErrno, ": <strerror(errno)>" is appended. Answers
    // 0, or -1 when the peer could not be written to.
    int sendMsg(int code, const char* msg, bool addErrno);
    int sendMsg(int code, const char* msg, bool addErrno, bool useCmdNum);
    // The text as it stands, then a NUL.
    int sendMsg(const char* msg);
    // Raw bytes, written whole under the write lock.
    int sendData(const void* data, int len);

    void incRef();
    bool decRef();  // true when the last reference went away (object deleted)

    // Input state kept by the listener between reads: the bytes of a line
    // that has not ended yet, and whether the rest of an over-long line is
    // being skipped.
    std::string& pendingLine() { return mPendingLine; }
    bool discardingLine() const { return mDiscardingLine; }
    void setDiscardingLine(bool on) { mDiscardingLine = on; }

private:
    int sendDataLocked(const void* data, size_t len);

    int mSocket;
    pelk::UniqueFd mOwnedSocket;
    std::mutex mWriteMutex;
    std::mutex mRefCountMutex;
    int mRefCount = 1;
    pid_t mPid = -1;
    uid_t mUid = static_cast<uid_t>(-1);
    gid_t mGid = static_cast<gid_t>(-1);
    int mCmdNum = 0;
    bool mUseCmdNum;
    std::string mPendingLine;
    bool mDiscardingLine = false;
};
