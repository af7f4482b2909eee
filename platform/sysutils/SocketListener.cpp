// The listener thread: takes the socket by name or number, accepts clients
// and serves them one at a time until stopped.
#include <sysutils/SocketListener.h>

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cutils/sockets.h>
#include <devprofile/DeviceProfile.h>
#include <log/log.h>

namespace {

const char kTag[] = "SocketListener";
const int kDefaultBacklog = 4;
const char kStopByte = 'S';
// Pause after a failure that would otherwise repeat at once (no descriptor
// left for accept, poll without memory), so the thread does not spin.
const int kBackoffMs = 10;

int socketPath(const char* name, struct sockaddr_un* addr) {
    memset(addr, 0, sizeof(*addr));
    addr->sun_family = AF_UNIX;
    int n = snprintf(addr->sun_path, sizeof(addr->sun_path), "%s/%s", ANDROID_SOCKET_DIR, name);
    if (n < 0 || static_cast<size_t>(n) >= sizeof(addr->sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return 0;
}

}  // namespace

SocketListener::SocketListener(const char* socketName, bool listen)
    : SocketListener(socketName, listen, false) {}

SocketListener::SocketListener(const char* socketName, bool listen, bool useCmdNum)
    : mListen(listen), mSocketName(socketName), mUseCmdNum(useCmdNum) {}

SocketListener::SocketListener(int socketFd, bool listen)
    : mListen(listen), mSocketName(nullptr), mSock(socketFd), mUseCmdNum(false) {}

SocketListener::~SocketListener() {
    if (mThreadStarted) stopListener();
    releaseAll();
    removeCreatedPath();
}

int SocketListener::createNamedSocket() {
    struct sockaddr_un addr;
    if (socketPath(mSocketName, &addr) != 0) return -1;
    pelk::UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.ok()) return -1;
    // A socket file left by an earlier run refuses every connection.
    if (unlink(addr.sun_path) != 0 && errno != ENOENT) return -1;
    if (bind(fd.get(), reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0) return -1;
    struct stat st;
    if (chmod(addr.sun_path, 0660) != 0 || stat(addr.sun_path, &st) != 0) {
        int saved = errno;
        unlink(addr.sun_path);
        errno = saved;
        return -1;
    }
    mCreatedPath = true;
    mCreatedIno = st.st_ino;
    return fd.release();
}

void SocketListener::removeCreatedPath() {
    if (!mCreatedPath) return;
    mCreatedPath = false;
    struct sockaddr_un addr;
    struct stat st;
    if (socketPath(mSocketName, &addr) == 0 && stat(addr.sun_path, &st) == 0 &&
        st.st_ino == mCreatedIno) {
        unlink(addr.sun_path);
    }
}

int SocketListener::openSocket(int backlog) {
    if (mSock < 0 && mSocketName != nullptr) {
        int fd = android_get_control_socket(mSocketName);
        if (fd >= 0) {
            // Taken over from init: ours now, and not for our children.
            if (fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) return -1;
        } else {
            fd = createNamedSocket();
            if (fd < 0) {
                __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot create socket '%s': %s",
                                    mSocketName, strerror(errno));
                return -1;
            }
        }
        mSock = fd;
        mOwnedSock.reset(fd);
    }
    if (mSock < 0) {
        errno = EBADF;
        return -1;
    }
    if (mListen) {
        if (listen(mSock, backlog) != 0) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Unable to listen on socket %d: %s", mSock,
                                strerror(errno));
            return -1;
        }
    } else {
        // The socket is itself the one connection to serve.
        addClient(new SocketClient(mSock, false, mUseCmdNum));
    }
    return 0;
}

int SocketListener::startListener() {
    return startListener(kDefaultBacklog);
}

int SocketListener::startListener(int backlog) {
    if (mThreadStarted) {
        errno = EBUSY;
        return -1;
    }
    if (devprofile::shouldFail("startListener")) {
        errno = EADDRINUSE;
        return -1;
    }
    if (openSocket(backlog) != 0) return -1;

    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) {
        releaseAll();
        return -1;
    }
    mCtrlRead.reset(pipeFds[0]);
    mCtrlWrite.reset(pipeFds[1]);

    int rc = pthread_create(&mThread, nullptr, SocketListener::threadStart, this);
    if (rc != 0) {
        mCtrlRead.reset();
        mCtrlWrite.reset();
        releaseAll();
        errno = rc;
        __android_log_print(ANDROID_LOG_ERROR, kTag, "pthread_create (%s)", strerror(rc));
        return -1;
    }
    mThreadStarted = true;
    return 0;
}

int SocketListener::stopListener() {
    if (!mThreadStarted) {
        errno = EINVAL;
        return -1;
    }
    ssize_t n = TEMP_FAILURE_RETRY(write(mCtrlWrite.get(), &kStopByte, 1));
    if (n != 1) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot wake the listener thread: %s",
                            strerror(errno));
        return -1;
    }
    pthread_join(mThread, nullptr);
    mThreadStarted = false;
    mCtrlRead.reset();
    mCtrlWrite.reset();
    releaseAll();
    return 0;
}

void* SocketListener::threadStart(void* obj) {
    static_cast<SocketListener*>(obj)->runListener();
    return nullptr;
}

void SocketListener::runListener() {
    std::vector<struct pollfd> fds;
    std::vector<SocketClient*> polled;
    for (;;) {
        fds.clear();
        polled.clear();
        fds.push_back({mCtrlRead.get(), POLLIN, 0});
        if (mListen) fds.push_back({mSock, POLLIN, 0});
        const size_t firstClient = fds.size();
        {
            // Only this thread adds or removes clients, so the pointers
            // stay valid after the lock is let go.
            std::lock_guard<std::mutex> lock(mClientsLock);
            for (SocketClient* c : mClients) {
                fds.push_back({c->getSocket(), POLLIN, 0});
                polled.push_back(c);
            }
        }

        if (poll(fds.data(), fds.size(), -1) < 0) {
            if (errno == EINTR) continue;
            __android_log_print(ANDROID_LOG_ERROR, kTag, "poll failed: %s", strerror(errno));
            poll(nullptr, 0, kBackoffMs);
            continue;
        }
        if (fds[0].revents != 0) {
            char byte = 0;
            ssize_t n = read(mCtrlRead.get(), &byte, 1);
            if (n != 1 || byte == kStopByte) return;
        }
        if (mListen && (fds[1].revents & POLLIN)) acceptClient();

        for (size_t i = firstClient; i < fds.size(); ++i) {
            if ((fds[i].revents & (POLLIN | POLLHUP | POLLERR | POLLNVAL)) == 0) continue;
            SocketClient* c = polled[i - firstClient];
            if ((fds[i].revents & POLLNVAL) || !onDataAvailable(c)) release(c);
        }
    }
}

void SocketListener::acceptClient() {
    int fd = TEMP_FAILURE_RETRY(accept4(mSock, nullptr, nullptr, SOCK_CLOEXEC));
    if (fd < 0) {
        // A peer that gave up before being accepted is not an error.
        if (errno == ECONNABORTED || errno == EAGAIN || errno == EWOULDBLOCK) return;
        __android_log_print(ANDROID_LOG_ERROR, kTag, "accept failed: %s", strerror(errno));
        poll(nullptr, 0, kBackoffMs);
        return;
    }
    addClient(new SocketClient(fd, true, mUseCmdNum));
}

void SocketListener::addClient(SocketClient* c) {
    std::lock_guard<std::mutex> lock(mClientsLock);
    mClients.push_back(c);
}

void SocketListener::release(SocketClient* c) {
    {
        std::lock_guard<std::mutex> lock(mClientsLock);
        mClients.remove(c);
    }
    // A broadcast still writing holds its own reference; the last one
    // deletes the client and closes its socket.
    c->decRef();
}

void SocketListener::releaseAll() {
    std::list<SocketClient*> gone;
    {
        std::lock_guard<std::mutex> lock(mClientsLock);
        gone.swap(mClients);
    }
    for (SocketClient* c : gone) c->decRef();
}

void SocketListener::sendBroadcast(int code, const char* msg, bool addErrno) {
    int savedErrno = errno;
    std::vector<SocketClient*> targets;
    {
        std::lock_guard<std::mutex> lock(mClientsLock);
        targets.reserve(mClients.size());
        for (SocketClient* c : mClients) {
            c->incRef();
            targets.push_back(c);
        }
    }
    // Written outside the list lock: one slow client must not hold up the
    // listener thread's accepts and removals.
    for (SocketClient* c : targets) {
        errno = savedErrno;
        c->sendMsg(code, msg, addErrno, false);
        c->decRef();
    }
    errno = savedErrno;
}
