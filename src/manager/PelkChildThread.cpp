// Starting the reaper of the remount and unmount workers.
#include <pthread.h>

#include "manager/Pelk.h"

void Pelk::runClearChildThread() {
    // Never joined: the reaper runs for the life of the daemon.
    pthread_t thread;
    pthread_create(&thread, nullptr, runClearChildThreadInternal, nullptr);
}
