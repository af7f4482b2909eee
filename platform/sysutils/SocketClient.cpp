// One connected client: its peer credentials, its serialised writes and its
// reference count.
#include <sysutils/SocketClient.h>

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

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

void SocketClient::setCmdNum(int cmdNum) {
    mCmdNum = cmdNum;
}

int SocketClient::sendMsg(int code, const char* msg, bool addErrno) {
    return sendMsg(code, msg, addErrno, mUseCmdNum);
}

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
    const char* p = static_cast<const char*>(data);
    while (len > 0) {
        // MSG_NOSIGNAL: a peer that vanished yields EPIPE, not a dead daemon.
        ssize_t n = send(mSocket, p, len, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        p += n;
        len -= static_cast<size_t>(n);
    }
    return 0;
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
