// One connected client of a SocketListener (host edition: platform/sysutils).
#pragma once

#include <pthread.h>
#include <sys/types.h>

class SocketClient {
public:
    SocketClient(int socket, bool owned, bool useCmdNum);
    virtual ~SocketClient();

    int getSocket() const { return mSocket; }
    pid_t getPid() const { return mPid; }
    uid_t getUid() const { return mUid; }
    gid_t getGid() const { return mGid; }

    // Sequence number of the command being answered (0 for broadcasts).
    void setCmdNum(int cmdNum);
    int getCmdNum() const { return mCmdNum; }

    // "<code> <seq> <msg>" (or "<code> <msg>" without sequence numbers),
    // then a NUL. With addErrno, ": <strerror(errno)>" is appended.
    int sendMsg(int code, const char* msg, bool addErrno);
    int sendMsg(int code, const char* msg, bool addErrno, bool useCmdNum);
    // The text as it stands, then a NUL.
    int sendMsg(const char* msg);
    int sendData(const void* data, int len);

    void incRef();
    bool decRef();  // true when the last reference went away

private:
    int sendDataLocked(const void* data, int len);

    int mSocket;
    bool mSocketOwned;
    pthread_mutex_t mWriteMutex;
    pthread_mutex_t mRefCountMutex;
    int mRefCount;
    pid_t mPid;
    uid_t mUid;
    gid_t mGid;
    int mCmdNum;
    bool mUseCmdNum;
};
