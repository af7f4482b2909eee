// The manager singleton, its two constructors and the state that outlives a
// single command.
#define LOG_TAG "pelkd"

#include "manager/Pelk.h"
#include <log/log.h>

#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <unistd.h>

#include <crypt/crypt.h>
#include <fileops/CopyFileImpl.h>
#include <persona/persona.h>

#include "command/CommandListenerEnterprise.h"
#include "fs_handler/FsHandlerThread.h"
#include "partition/Partition.h"

Pelk* Pelk::sInstance = nullptr;
std::map<int, bool> Pelk::isUnlockedByCe;
std::map<int, int> Pelk::remountChildList;
std::mutex Pelk::remountChildListLock;

namespace {

// Container users probed for a mounted CE area at start-up.
const int kStartupUsers = 10;

}  // namespace

Pelk* Pelk::Instance() {
    // The listener starts inside the constructor, so a command may ask for
    // the manager before the first call has returned: it waits for it.
    static std::once_flag built;
    std::call_once(built, [] { sInstance = new Pelk(); });
    return sInstance;
}

Pelk::Pelk() {
    mListener = new CommandListenerEnterprise();
    mCopyEngine = new CopyFileImpl();
    mPreMountMark = 0;
    mPid = getpid();
    if (mListener->startListener() != 0) {
        // DEBUG on purpose: the daemon runs on without this socket.
        SLOGD("Unable to start DirEncryptionListener (%s)", strerror(errno));
    }
    initStatusMap();
    // run() answers the new thread's handle, not a status, so a thread that
    // runs is logged as "not started"; the thread runs either way (kept).
    if (FsHandlerThread::run() == 0) {
        SLOGI("FsHandlerThread started: Thread created");
    } else {
        SLOGE("FsHandlerThread not started: Thread not created (%s)", strerror(errno));
    }
    if (isFBESupported() == 0) {
        install_ecryptfs_keyring();
        // The reaper of the remount workers; never joined.
        pthread_t reaper;
        pthread_create(&reaper, nullptr, runClearChildThreadInternal, nullptr);
    }
}

Pelk::Pelk(int pid) {
    mCopyEngine = new CopyFileImpl();
    SLOGD("Added PELK Instance (PID:%d)", pid);
    mListener = nullptr;
    mPid = pid;
    mPreMountMark = -1;
}

Pelk::~Pelk() { delete mCopyEngine; }

void Pelk::initStatusMap() {
    int users[kStartupUsers] = {0};
    int count = scanZanthPersonas(users, kStartupUsers);
    if (count < 1) return;
    if (count > kStartupUsers) count = kStartupUsers;
    for (int i = 0; i < count; ++i) {
        // A CE data area that is already mounted (a restarted daemon) counts
        // as unlocked without any key handling.
        Partition ceData(users[i], PARTITION_CE_DATA, nullptr, false);
        isUnlockedByCe[users[i]] = isMountedInternal(nullptr, ceData.mMntPath) == 1;
    }
}
