// A listening stream socket served by one thread (host edition).
//
// The socket by name: the descriptor init passed in ANDROID_SOCKET_<name>;
// when there is none, the listener creates "/dev/socket/<name>" itself
// (removing a stale one, mode 0660). A socket taken by name belongs to the
// listener and is closed (and a created path removed) when it is destroyed;
// a socket passed by number stays the caller's.
//
// One thread polls the listening socket, every client and a control pipe,
// and hands each readable client to onDataAvailable() in turn, so commands
// of one listener run one at a time. Every descriptor the listener opens is
// close-on-exec.
//
// No client can hold the thread up or starve the others of it:
// - replies never block (SocketClient): a client whose replies wait unread
//   is not read from until they are gone, and is dropped with one log line
//   when they wait too long or pile up too high;
// - at most kMaxClients are connected at once: a new connection beyond that
//   drops the client idle longest (no line read, no reply byte taken), with
//   one log line (at most one a second, the next one counting the drops it
//   did not report);
// - when accept fails for lack of descriptors or memory, the listening
//   socket rests (100 ms, doubling up to 2 s while it keeps failing) and the
//   clients are served on; the failure is logged at most once every 10 s,
//   a line after the first counting the failures not logged.
//
// Host builds: devprofile::failNext("startListener") makes the next
// startListener() fail with EADDRINUSE, as a device whose socket is missing.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <list>
#include <mutex>
#include <vector>

#include <sysutils/SocketClient.h>
#include "base/UniqueFd.h"

class SocketListener {
public:
    // Clients connected at once to one listener.
    static constexpr int kMaxClients = 64;

    SocketListener(const char* socketName, bool listen);
    SocketListener(const char* socketName, bool listen, bool useCmdNum);
    SocketListener(int socketFd, bool listen);
    virtual ~SocketListener();
    SocketListener(const SocketListener&) = delete;
    SocketListener& operator=(const SocketListener&) = delete;

    // Takes the socket and starts the listener thread; 0, or -1 with errno
    // set (EBUSY when it is already running).
    int startListener();
    int startListener(int backlog);
    // Stops the thread and drops every client; 0, or -1 when not running.
    int stopListener();

    // Sends "<code> <msg>" and a NUL to every connected client. Broadcasts
    // answer no command, so they carry no sequence number even on a
    // listener that numbers its replies.
    void sendBroadcast(int code, const char* msg, bool addErrno);

protected:
    // Called on the listener thread with one client that has bytes to read,
    // or that holds bytes read earlier (SocketClient::heldInput) and has no
    // reply waiting any more; false when the client went away (it is then
    // dropped). The thread calls into the subclass, so a subclass stops the
    // listener in its own destructor.
    virtual bool onDataAvailable(SocketClient* c) = 0;

private:
    static void* threadStart(void* obj);
    int openSocket(int backlog);
    int createNamedSocket();
    void removeCreatedPath();
    void runListener();
    // Drops the clients that broke or whose replies waited too long; lowers
    // *timeoutMs to the next moment a waiting client runs out of time.
    void dropStuckClients(long long now, int* timeoutMs);
    void acceptClient(long long now);
    void acceptFailed(long long now, int error);
    void dropIdlest(long long now);
    void addClient(SocketClient* c);
    void release(SocketClient* c);
    void releaseAll();
    // Makes the thread go round its loop again (any thread).
    void wake();

    bool mListen;
    const char* mSocketName;
    int mSock = -1;
    pelk::UniqueFd mOwnedSock;
    // The path this listener bound, and its inode, so that only our own
    // socket file is removed even if another listener replaced it since.
    bool mCreatedPath = false;
    ino_t mCreatedIno = 0;
    bool mUseCmdNum;
    std::list<SocketClient*> mClients;
    std::mutex mClientsLock;
    pelk::UniqueFd mCtrlRead;
    pelk::UniqueFd mCtrlWrite;
    std::atomic<bool> mWakePending{false};
    pthread_t mThread{};
    bool mThreadStarted = false;

    // Listener thread only: the rest after a failed accept, and the log
    // lines held back.
    long long mAcceptRestUntilMs = 0;
    int mAcceptRestMs = 0;
    int mAcceptFailuresUnlogged = 0;
    long long mAcceptLoggedMs = 0;
    int mDropsUnlogged = 0;
    long long mDropLoggedMs = 0;
};
