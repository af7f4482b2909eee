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
// Host builds: devprofile::failNext("startListener") makes the next
// startListener() fail with EADDRINUSE, as a device whose socket is missing.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <list>
#include <mutex>
#include <vector>

#include "base/UniqueFd.h"
#include <sysutils/SocketClient.h>

class SocketListener {
public:
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
    // Called on the listener thread with one client ready to read; false
    // when the client went away (it is then dropped). The thread calls into
    // the subclass, so a subclass stops the listener in its own destructor.
    virtual bool onDataAvailable(SocketClient* c) = 0;

private:
    static void* threadStart(void* obj);
    int openSocket(int backlog);
    int createNamedSocket();
    void removeCreatedPath();
    void runListener();
    void acceptClient();
    void addClient(SocketClient* c);
    void release(SocketClient* c);
    void releaseAll();

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
    pthread_t mThread{};
    bool mThreadStarted = false;
};
