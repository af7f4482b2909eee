// The event thread's life: start, the loop of one life, and the restart.
#define LOG_TAG "pelkd"

#include "fs_handler/FsHandlerThread.h"

#include <errno.h>
#include <log/log.h>
#include <poll.h>
#include <string.h>

#include <memory>

FsHandlerThread::FsHandlerThread() {
    SLOGI("FsHandlerThread::FsHandlerThread created");
    mHandler = new FsNetlinkHandler(ECRYPTFS_NETLINK_UNIT);
}

FsHandlerThread::~FsHandlerThread() {
    SLOGI("FsHandlerThread::FsHandlerThread destroyed");
    delete mHandler;
}

pthread_t FsHandlerThread::run() {
    pthread_t thread = 0;
    pthread_create(&thread, nullptr, runThread, nullptr);
    return thread;
}

void* FsHandlerThread::runThread(void*) {
    // No pause between lives: a new socket and a new registration at once.
    for (;;) {
        auto life = std::make_unique<FsHandlerThread>();
        int rc = life->main();
        SLOGE("fs_handler_thread_main terminated(rc:%d).. restarting", rc);
    }
    return nullptr;
}

int FsHandlerThread::main() {
    int fd = mHandler->fd();
    if (fd < 0) {
        SLOGE("Failed to open the netlink socket with error: %s \n", strerror(errno));
        SLOGE("Exiting \n");
        return errno;
    }
    SLOGI("Before polling: fd: %d \n", fd);
    if (mHandler->setPid() != 0) {
        SLOGE("Failed on fipscrypto_set_pid with error: %s", strerror(errno));
        SLOGE("Exiting \n");
        return errno;
    }
    SLOGI("Netlink sending message queue initialized!");

    // The record lives across requests: a failed receive hands the previous
    // datagram to process() once more, as the loop always has.
    auto message = std::make_unique<ecryptfs_netlink_recvmsg>();
    sockaddr_nl sender{};
    unsigned int senderLength = sizeof(sender);
    for (;;) {
        pollfd watch{fd, POLLIN, 0};
        int ready = poll(&watch, 1, -1);
        if (ready == 0) continue;
        if (ready < 0) {
            if (errno != EINTR) SLOGE("Failed to poll the mirel_fs_handlerd socket: %d: %s \n", errno, strerror(errno));
            continue;
        }
        int received = mHandler->recv(message.get(), 0, 0, &senderLength);
        ecryptfs_netlink_recvctx context{&sender, message.get(), received, 0, senderLength};
        if (process(&context) != 0) SLOGE("multi_crypto_compute failed\n");
    }
}
