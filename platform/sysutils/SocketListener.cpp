// The listener thread: takes the socket by name or number, accepts clients
// and serves them one at a time until stopped, dropping the clients that
// would hold it up.
#include <sysutils/SocketListener.h>

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
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
const char kWakeByte = 'W';
// Pause after a poll failure, so the thread does not spin.
const int kBackoffMs = 10;
// Rest of the listening socket after a failed accept: doubled on each
// failure in a row, up to the most.
const int kAcceptRestFirstMs = 100;
const int kAcceptRestMostMs = 2000;
// Lines that could repeat as fast as a peer can connect: at most one per
// interval, the next one counting those held back.
const long long kAcceptLogIntervalMs = 10000;
const long long kDropLogIntervalMs = 1000;

int msUntil(long long now, long long then) {
    long long left = then - now;
    if (left <= 0) return 0;
    return left > INT_MAX ? INT_MAX : static_cast<int>(left);
}

void lowerTimeout(int* timeoutMs, int ms) {
    if (*timeoutMs < 0 || ms < *timeoutMs) *timeoutMs = ms;
}

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

SocketListener::SocketListener(const char* socketName, bool listen) : SocketListener(socketName, listen, false) {}

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
    if (socketPath(mSocketName, &addr) == 0 && stat(addr.sun_path, &st) == 0 && st.st_ino == mCreatedIno) {
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
                __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot create socket '%s': %s", mSocketName,
                                    strerror(errno));
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
            __android_log_print(ANDROID_LOG_ERROR, kTag, "Unable to listen on socket %d: %s", mSock, strerror(errno));
            return -1;
        }
    } else {
        // The socket is itself the one connection to serve.
        addClient(new SocketClient(mSock, false, mUseCmdNum));
    }
    return 0;
}

int SocketListener::startListener() { return startListener(kDefaultBacklog); }

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

    // The control pipe lives as long as the listener: a client may wake the
    // thread from another thread at any time (SocketClient::setWaker). Only
    // the wake ups still in it are drained when the thread starts again.
    if (!mCtrlRead.ok()) {
        int pipeFds[2];
        if (pipe2(pipeFds, O_CLOEXEC | O_NONBLOCK) != 0) {
            releaseAll();
            return -1;
        }
        mCtrlRead.reset(pipeFds[0]);
        mCtrlWrite.reset(pipeFds[1]);
    }
    char stale[64];
    while (read(mCtrlRead.get(), stale, sizeof(stale)) > 0) {}
    mWakePending = false;

    int rc = pthread_create(&mThread, nullptr, SocketListener::threadStart, this);
    if (rc != 0) {
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
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Cannot wake the listener thread: %s", strerror(errno));
        return -1;
    }
    pthread_join(mThread, nullptr);
    mThreadStarted = false;
    releaseAll();
    return 0;
}

void SocketListener::wake() {
    // One wake byte at a time is enough: the thread clears the flag before
    // it looks at the clients again.
    if (mWakePending.exchange(true)) return;
    ssize_t n = TEMP_FAILURE_RETRY(write(mCtrlWrite.get(), &kWakeByte, 1));
    (void)n;
}

void* SocketListener::threadStart(void* obj) {
    static_cast<SocketListener*>(obj)->runListener();
    return nullptr;
}

void SocketListener::runListener() {
    std::vector<struct pollfd> fds;
    std::vector<SocketClient*> polled;
    std::vector<SocketClient*> gone;
    for (;;) {
        long long now = SocketClient::nowMs();
        int timeoutMs = -1;
        dropStuckClients(now, &timeoutMs);

        fds.clear();
        polled.clear();
        fds.push_back({mCtrlRead.get(), POLLIN, 0});
        // The listening socket rests for a while after a failed accept.
        const bool accepting = mListen && now >= mAcceptRestUntilMs;
        if (mListen && !accepting) lowerTimeout(&timeoutMs, msUntil(now, mAcceptRestUntilMs));
        if (accepting) fds.push_back({mSock, POLLIN, 0});
        const size_t firstClient = fds.size();
        {
            // Only this thread adds or removes clients, so the pointers
            // stay valid after the lock is let go.
            std::lock_guard<std::mutex> lock(mClientsLock);
            for (SocketClient* c : mClients) {
                short events = POLLIN;
                if (c->hasPendingOutput()) {
                    // No more of its lines until its replies are gone.
                    events = POLLOUT;
                } else if (!c->heldInput().empty()) {
                    // Lines held back while replies waited: served at once.
                    events = 0;
                    timeoutMs = 0;
                }
                fds.push_back({c->getSocket(), events, 0});
                polled.push_back(c);
            }
        }

        if (poll(fds.data(), fds.size(), timeoutMs) < 0) {
            if (errno == EINTR) continue;
            __android_log_print(ANDROID_LOG_ERROR, kTag, "poll failed: %s", strerror(errno));
            poll(nullptr, 0, kBackoffMs);
            continue;
        }
        if (fds[0].revents != 0) {
            char bytes[64];
            ssize_t n;
            while ((n = read(mCtrlRead.get(), bytes, sizeof(bytes))) > 0) {
                if (memchr(bytes, kStopByte, static_cast<size_t>(n)) != nullptr) return;
            }
            // No writer left: nobody could ever stop the thread.
            if (n == 0) return;
            // Cleared once the pipe is empty and before the clients are
            // looked at again: a wake up before this is seen by that look,
            // one after it writes a byte of its own.
            mWakePending = false;
        }

        now = SocketClient::nowMs();
        gone.clear();
        for (size_t i = firstClient; i < fds.size(); ++i) {
            SocketClient* c = polled[i - firstClient];
            const short events = fds[i].events;
            const short revents = fds[i].revents;
            if (revents & POLLNVAL) {
                gone.push_back(c);
                continue;
            }
            if (events == POLLOUT) {
                // A failed write marks the client broken; it is dropped on
                // the next round.
                if (revents != 0 && c->flushPending()) c->setLastActivityMs(now);
                continue;
            }
            if (events == 0 || (revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
                c->setLastActivityMs(now);
                if (!onDataAvailable(c)) gone.push_back(c);
            }
        }
        for (SocketClient* c : gone) release(c);

        if (accepting && (fds[1].revents & POLLIN)) acceptClient(now);
    }
}

void SocketListener::dropStuckClients(long long now, int* timeoutMs) {
    std::vector<SocketClient*> stuck;
    {
        std::lock_guard<std::mutex> lock(mClientsLock);
        for (SocketClient* c : mClients) {
            SocketClient::Broken why = c->broken();
            if (why == SocketClient::Broken::GONE) {
                // The peer went away: nothing to report.
                stuck.push_back(c);
            } else if (why == SocketClient::Broken::OVERFLOW) {
                __android_log_print(ANDROID_LOG_WARN, kTag,
                                    "Dropping client (pid %d): more than %zu bytes of replies unread", c->getPid(),
                                    SocketClient::kMaxPendingBytes);
                stuck.push_back(c);
            } else if (long long since = c->waitingSinceMs()) {
                if (now - since >= SocketClient::kMaxReplyWaitMs) {
                    __android_log_print(ANDROID_LOG_WARN, kTag,
                                        "Dropping client (pid %d): its replies waited %d ms unread", c->getPid(),
                                        SocketClient::kMaxReplyWaitMs);
                    stuck.push_back(c);
                } else {
                    lowerTimeout(timeoutMs, msUntil(now, since + SocketClient::kMaxReplyWaitMs));
                }
            }
        }
    }
    for (SocketClient* c : stuck) release(c);
}

void SocketListener::acceptClient(long long now) {
    int fd = TEMP_FAILURE_RETRY(accept4(mSock, nullptr, nullptr, SOCK_CLOEXEC));
    if (fd < 0) {
        // A peer that gave up before being accepted is not an error.
        if (errno == ECONNABORTED || errno == EAGAIN || errno == EWOULDBLOCK) return;
        acceptFailed(now, errno);
        return;
    }
    mAcceptRestMs = 0;
    SocketClient* c = new SocketClient(fd, true, mUseCmdNum);
    c->setLastActivityMs(now);
    size_t count;
    {
        std::lock_guard<std::mutex> lock(mClientsLock);
        count = mClients.size();
    }
    if (count >= static_cast<size_t>(kMaxClients)) dropIdlest(now);
    addClient(c);
}

void SocketListener::acceptFailed(long long now, int error) {
    // Without a descriptor (or memory) the same accept fails again at once:
    // the listening socket rests, longer each time, while the connected
    // clients are served on.
    mAcceptRestMs = mAcceptRestMs == 0 ? kAcceptRestFirstMs : mAcceptRestMs * 2;
    if (mAcceptRestMs > kAcceptRestMostMs) mAcceptRestMs = kAcceptRestMostMs;
    mAcceptRestUntilMs = now + mAcceptRestMs;
    // Logged the first time, then at most once an interval, however often
    // a descriptor comes free and is gone again.
    if (mAcceptLoggedMs != 0 && now - mAcceptLoggedMs < kAcceptLogIntervalMs) {
        ++mAcceptFailuresUnlogged;
        return;
    }
    if (mAcceptFailuresUnlogged > 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "accept failed: %s (%d more since the last line)", strerror(error),
                            mAcceptFailuresUnlogged);
    } else {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "accept failed: %s", strerror(error));
    }
    mAcceptFailuresUnlogged = 0;
    mAcceptLoggedMs = now;
}

void SocketListener::dropIdlest(long long now) {
    SocketClient* idlest = nullptr;
    {
        std::lock_guard<std::mutex> lock(mClientsLock);
        for (SocketClient* c : mClients) {
            if (idlest == nullptr || c->lastActivityMs() < idlest->lastActivityMs()) idlest = c;
        }
    }
    if (idlest == nullptr) return;
    if (mDropLoggedMs != 0 && now - mDropLoggedMs < kDropLogIntervalMs) {
        ++mDropsUnlogged;
    } else {
        if (mDropsUnlogged > 0) {
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "Too many clients (%d): dropping the one idle longest (pid %d); %d more "
                                "dropped since the last line",
                                kMaxClients, idlest->getPid(), mDropsUnlogged);
        } else {
            __android_log_print(ANDROID_LOG_WARN, kTag, "Too many clients (%d): dropping the one idle longest (pid %d)",
                                kMaxClients, idlest->getPid());
        }
        mDropsUnlogged = 0;
        mDropLoggedMs = now;
    }
    release(idlest);
}

void SocketListener::addClient(SocketClient* c) {
    // Replies queued from another thread (a broadcast) must wake the
    // thread, so that it polls the client for room to write.
    c->setWaker([this] { wake(); });
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
