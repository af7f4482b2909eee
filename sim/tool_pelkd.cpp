// pelkd: the daemon's main on the simulated device. It builds the container
// manager (which starts the "pelk" listener and learns the unlock state from
// the mount table) and the private-mode manager (which starts "ppm"), starts
// the daemon log threads, then serves until SIGTERM or SIGINT.
//
// The sockets are taken from init's ANDROID_SOCKET_<name> descriptors when
// present, else created as /dev/socket/pelk and /dev/socket/ppm; a client may
// connect as soon as those files exist. pelkd prints nothing itself: its
// lines go to the device log ("logcat").
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "log/PelkLog.h"
#include "manager/Pelk.h"
#include "manager/PrivatePartitionManager.h"

namespace {

// Written by the signal handler, read by main: the only way a handler may
// wake a thread. A handler (not a blocked mask) is used because blocked
// signals would be inherited by every program the daemon executes.
int sStopPipe[2] = {-1, -1};
// The daemon's own pid: a worker the engine forked shares the pipe, and its
// SIGTERM must never stop the daemon.
pid_t sDaemonPid = -1;

void onStopSignal(int) {
    if (getpid() != sDaemonPid) _exit(0);
    int saved = errno;
    char byte = 1;
    ssize_t ignored = write(sStopPipe[1], &byte, 1);
    (void)ignored;
    errno = saved;
}

bool installStopHandler() {
    sDaemonPid = getpid();
    if (pipe2(sStopPipe, O_CLOEXEC) != 0) return false;
    struct sigaction sa {};
    sa.sa_handler = onStopSignal;
    sigemptyset(&sa.sa_mask);
    // No SA_RESTART: the read in main must come back with EINTR. A runtime
    // that defers handlers to the end of the interrupted call (a thread
    // sanitizer does) would otherwise never run this one while main waits.
    sa.sa_flags = 0;
    return sigaction(SIGTERM, &sa, nullptr) == 0 && sigaction(SIGINT, &sa, nullptr) == 0;
}

}  // namespace

int main() {
    if (!installStopHandler()) {
        fprintf(stderr, "pelkd: cannot install the stop handler: %s\n", strerror(errno));
        return 1;
    }
    signal(SIGPIPE, SIG_IGN);

    Pelk::Instance();
    PrivatePartitionManager::Instance();
    // The daemon log: the copy of the kernel's key-event log (it waits for a
    // writer on /dev/dek_log) and, on a device with containers, the capture
    // of the system log around the boot-time pre-mount.
    PelkLog* log = PelkLog::Instance();
    // Nobody joins these threads in the daemon: detached, one that ends
    // (the capture does once the boot is over) leaves nothing behind.
    if (log->startLog() == 0) pthread_detach(log->logThread());
    if (log->startLogcat() == 0) pthread_detach(log->logcatThread());

    // Interrupted (the handler may run only once the call is over), the
    // read is tried again and then finds the handler's byte.
    char byte;
    while (read(sStopPipe[0], &byte, 1) < 0 && errno == EINTR) {}
    // Nothing is torn down: the listener threads may be in the middle of a
    // command, and the device reclaims everything with the process. Only the
    // standard streams are flushed: another thread may sit in a read of its
    // own stream (the logcat capture), whose lock a flush of every stream
    // would wait for forever.
    fflush(stdout);
    fflush(stderr);
    _exit(0);
}
