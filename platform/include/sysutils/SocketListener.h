// A listening stream socket served by one thread (host edition).
#pragma once

#include <pthread.h>

#include <list>

#include <sysutils/SocketClient.h>

class SocketListener {
public:
    // Takes the socket by name: init's ANDROID_SOCKET_<name>, or else
    // "/dev/socket/<name>" is created.
    SocketListener(const char* socketName, bool listen);
    SocketListener(const char* socketName, bool listen, bool useCmdNum);
    SocketListener(int socketFd, bool listen);
    virtual ~SocketListener();

    // Starts the listener thread; 0, or -1 with errno set.
    int startListener();
    int startListener(int backlog);
    int stopListener();

    // Sends to every connected client; writes to one client never interleave.
    void sendBroadcast(int code, const char* msg, bool addErrno);

protected:
    // Called on the listener thread with one client ready to read; false
    // when the client went away.
    virtual bool onDataAvailable(SocketClient* c) = 0;

private:
    static void* threadStart(void* obj);
    void runListener();
    void init(const char* socketName, int socketFd, bool listen, bool useCmdNum);
    bool release(SocketClient* c, bool wakeup);

    bool mListen;
    const char* mSocketName;
    int mSock;
    bool mOwnsSocket;
    std::list<SocketClient*>* mClients;
    pthread_mutex_t mClientsLock;
    int mCtrlPipe[2];
    pthread_t mThread;
    bool mThreadStarted;
    bool mUseCmdNum;
};
