// One connected client of a SocketListener (host edition: platform/sysutils).
//
// Replies are "<code> <seq> <text>" (or "<code> <text>" without sequence
// numbers) followed by one NUL byte. Each message is written whole under the
// client's own write lock, so a broadcast sent from another thread never
// interleaves with a reply. Writes never raise SIGPIPE and never block: what
// the socket does not take at once waits in the client's outbox, and the
// listener thread sends it when the peer reads. A message is never split by
// another one: once part of a message waits, everything after it waits too.
//
// A peer that does not read costs only itself. While its outbox holds
// anything, the listener reads no more of its lines; once it has taken
// nothing for kMaxReplyWaitMs, or once a message finds more than
// kMaxPendingBytes already waiting, the listener drops it with one log line.
//
// A client is reference counted: the listener holds one reference while the
// client is connected, a broadcast takes one while it writes, so an object
// stays valid until the last user lets go even if the peer hangs up.
#pragma once

#include <stddef.h>
#include <sys/types.h>

#include <functional>
#include <mutex>
#include <string>

#include "base/Secret.h"
#include "base/UniqueFd.h"

class SocketClient {
public:
    // Bytes that may wait in the outbox, beyond what the kernel's socket
    // buffer holds: a message that finds more than this waiting is refused
    // and the client is dropped. Every reply of the daemon is a few kilobytes
    // at most, and a client that is not read from gets at most one reply at
    // a time, so in practice only broadcasts to a stuck peer pile up.
    static constexpr size_t kMaxPendingBytes = 4u << 20;
    // How long waiting bytes may go without the peer taking any of them.
    static constexpr int kMaxReplyWaitMs = 5000;

    // Why a client can no longer be written to.
    enum class Broken {
        NO,        // writable
        GONE,      // the peer went away or the socket failed
        OVERFLOW,  // more than kMaxPendingBytes waited
    };

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
    // 0 when the message was sent or waits in the outbox, -1 when the client
    // cannot be written to any more (the listener then drops it).
    int sendMsg(int code, const char* msg, bool addErrno);
    int sendMsg(int code, const char* msg, bool addErrno, bool useCmdNum);
    // The text as it stands, then a NUL.
    int sendMsg(const char* msg);
    // Raw bytes, sent or queued whole under the write lock.
    int sendData(const void* data, int len);

    void incRef();
    bool decRef();  // true when the last reference went away (object deleted)

    // ---- For the listener (its thread only, unless said otherwise) ----

    // Input state kept between reads: the bytes of a line that has not ended
    // yet, whether the rest of an over-long line is being skipped, and the
    // bytes read but held back while replies wait in the outbox. All of them
    // may hold a password or a key: their blocks are wiped when released.
    pelk::SecretBytes& pendingLine() { return mPendingLine; }
    bool discardingLine() const { return mDiscardingLine; }
    void setDiscardingLine(bool on) { mDiscardingLine = on; }
    pelk::SecretBytes& heldInput() { return mHeldInput; }

    // Called (any thread, under the write lock) when the outbox starts to
    // hold bytes or the client breaks, so that the listener wakes up.
    void setWaker(std::function<void()> wake) { mWake = std::move(wake); }

    // True when bytes wait in the outbox (any thread).
    bool hasPendingOutput();
    // Sends what the socket takes of the outbox without blocking; answers
    // true when it took at least one byte.
    bool flushPending();
    // Why the client cannot be written to, and how long (ms of
    // CLOCK_MONOTONIC, see nowMs) its outbox has waited without progress:
    // 0 when nothing waits.
    Broken broken();
    long long waitingSinceMs();

    // Last time the client sent a line or took reply bytes; the listener
    // drops the one idle longest when it has too many.
    long long lastActivityMs() const { return mLastActivityMs; }
    void setLastActivityMs(long long ms) { mLastActivityMs = ms; }

    static long long nowMs();

private:
    int sendDataLocked(const void* data, size_t len);
    // Sends what the socket takes now without waiting: the bytes sent (fewer
    // than len once it is full), or -1 with errno when it failed.
    ssize_t sendNowLocked(const char* p, size_t len);
    // Writes from the outbox; false once the socket failed.
    bool writePendingLocked(bool* progress);
    void breakLocked(Broken why);

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
    pelk::SecretBytes mPendingLine;
    bool mDiscardingLine = false;
    pelk::SecretBytes mHeldInput;
    long long mLastActivityMs = 0;

    // Guarded by mWriteMutex: the bytes not yet taken by the socket are
    // mOutbox[mOutboxStart, end).
    std::string mOutbox;
    size_t mOutboxStart = 0;
    long long mWaitingSinceMs = 0;
    Broken mBroken = Broken::NO;
    std::function<void()> mWake;
};
