// The private-mode manager singleton: a light container manager with the
// "ppm" listener of its own.
#define LOG_TAG "pelkd"

#include "manager/PrivatePartitionManager.h"
#include <log/log.h>

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <fileops/CopyFileImpl.h>

#include "command/CommandListenerPrivate.h"

PrivatePartitionManager* PrivatePartitionManager::sInstance = nullptr;

PrivatePartitionManager* PrivatePartitionManager::Instance() {
    // Its commands ask for the manager themselves, possibly while the
    // constructor that started their listener is still running.
    static std::once_flag built;
    std::call_once(built, [] { sInstance = new PrivatePartitionManager(); });
    return sInstance;
}

PrivatePartitionManager::PrivatePartitionManager() : Pelk(getpid()) {
    mPpmListener = new CommandListenerPrivate();
    mPpmSocketListener = mPpmListener;
    mPpmCopyEngine = new CopyFileImpl();
    if (mPpmSocketListener->startListener() != 0) {
        SLOGD("Unable to start PPMListener (%s)", strerror(errno));
    }
}

PrivatePartitionManager::~PrivatePartitionManager() { delete mPpmCopyEngine; }
