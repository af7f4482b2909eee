// One connected client: its peer credentials, its serialised writes that
// never block (an outbox for what the socket does not take at once) and its
// reference count.
#include <sysutils/SocketClient.h>

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

#include <string>

SocketClient::SocketClient(int socket, bool owned, bool useCmdNum)
    : mSocket(socket), mOwnedSocket(owned ? socket : -1), mUseCmdNum(useCmdNum) {
    struct ucred cred;
    socklen_t len = sizeof(cred);
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0 && len == sizeof(cred)) {
        mPid = cred.pid;
        mUid = cred.uid;
        mGid = cred.gid;
    }
}

SocketClient::~SocketClient() = default;

void SocketClient::setCmdNum(int cmdNum) { mCmdNum = cmdNum; }

int SocketClient::sendMsg(int code, const char* msg, bool addErrno) { return sendMsg(code, msg, addErrno, mUseCmdNum); }

int SocketClient::sendMsg(int code, const char* msg, bool addErrno, bool useCmdNum) {
    // errno first: formatting below must not change what is reported.
    int savedErrno = errno;
    char head[32];
    if (useCmdNum) {
        snprintf(head, sizeof(head), "%d %d ", code, mCmdNum);
    } else {
        snprintf(head, sizeof(head), "%d ", code);
    }
    std::string line(head);
    line += msg ? msg : "";
    if (addErrno) {
        line += ": ";
        line += strerror(savedErrno);
    }
    // The NUL that ends every message on the wire.
    return sendData(line.c_str(), static_cast<int>(line.size() + 1));
}

int SocketClient::sendMsg(const char* msg) {
    const char* text = msg ? msg : "";
    return sendData(text, static_cast<int>(strlen(text) + 1));
}

int SocketClient::sendData(const void* data, int len) {
    if (len < 0) {
        errno = EINVAL;
        return -1;
    }
    std::lock_guard<std::mutex> lock(mWriteMutex);
    return sendDataLocked(data, static_cast<size_t>(len));
}

int SocketClient::sendDataLocked(const void* data, size_t len) {
    if (mBroken != Broken::NO) {
        errno = EPIPE;
        return -1;
    }
    const char* p = static_cast<const char*>(data);
    const size_t waiting = mOutbox.size() - mOutboxStart;
    if (waiting == 0) {
        // Nothing ahead of this message: the socket may take it at once.
        ssize_t sent = sendNowLocked(p, len);
        if (sent < 0) {
            int saved = errno;
            breakLocked(Broken::GONE);
            errno = saved;
            return -1;
        }
        p += sent;
        len -= static_cast<size_t>(sent);
        if (len == 0) return 0;
    } else if (waiting > kMaxPendingBytes) {
        breakLocked(Broken::OVERFLOW);
        errno = ENOBUFS;
        return -1;
    }
    // The rest of the message waits, whole, behind what already waits.
    if (mOutboxStart > 0 && mOutboxStart >= mOutbox.size() / 2) {
        mOutbox.erase(0, mOutboxStart);
        mOutboxStart = 0;
    }
    mOutbox.append(p, len);
    if (waiting == 0) {
        mWaitingSinceMs = nowMs();
        if (mWake) mWake();
    }
    return 0;
}

ssize_t SocketClient::sendNowLocked(const char* p, size_t len) {
    size_t sent = 0;
    while (sent < len) {
        // MSG_NOSIGNAL: a peer that vanished yields EPIPE, not a dead
        // daemon. MSG_DONTWAIT: a peer that does not read never holds up
        // the thread that answers.
        ssize_t n = send(mSocket, p + sent, len - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) break;
            return -1;
        }
        sent += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(sent);
}

bool SocketClient::writePendingLocked(bool* progress) {
    if (mOutboxStart < mOutbox.size()) {
        ssize_t n = sendNowLocked(mOutbox.data() + mOutboxStart, mOutbox.size() - mOutboxStart);
        if (n < 0) return false;
        if (n > 0) *progress = true;
        mOutboxStart += static_cast<size_t>(n);
        if (mOutboxStart < mOutbox.size()) return true;  // the socket is full for now
    }
    // All sent: a large outbox gives its memory back.
    std::string().swap(mOutbox);
    mOutboxStart = 0;
    return true;
}

bool SocketClient::flushPending() {
    std::lock_guard<std::mutex> lock(mWriteMutex);
    if (mBroken != Broken::NO) return false;
    bool progress = false;
    if (!writePendingLocked(&progress)) {
        breakLocked(Broken::GONE);
        return progress;
    }
    if (progress) mWaitingSinceMs = nowMs();
    return progress;
}

bool SocketClient::hasPendingOutput() {
    std::lock_guard<std::mutex> lock(mWriteMutex);
    return mBroken == Broken::NO && mOutboxStart < mOutbox.size();
}

SocketClient::Broken SocketClient::broken() {
    std::lock_guard<std::mutex> lock(mWriteMutex);
    return mBroken;
}

long long SocketClient::waitingSinceMs() {
    std::lock_guard<std::mutex> lock(mWriteMutex);
    return mOutboxStart < mOutbox.size() ? mWaitingSinceMs : 0;
}

void SocketClient::breakLocked(Broken why) {
    if (mBroken != Broken::NO) return;
    mBroken = why;
    // Nothing more goes to this peer.
    std::string().swap(mOutbox);
    mOutboxStart = 0;
    if (mWake) mWake();
}

long long SocketClient::nowMs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void SocketClient::incRef() {
    std::lock_guard<std::mutex> lock(mRefCountMutex);
    mRefCount++;
}

bool SocketClient::decRef() {
    bool last;
    {
        std::lock_guard<std::mutex> lock(mRefCountMutex);
        last = --mRefCount == 0;
    }
    if (last) delete this;
    return last;
}
