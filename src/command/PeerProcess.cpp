#include "command/PeerProcess.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77
#endif

namespace pelk {

namespace {

// A pidfd turns readable when its process exits.
bool pidfdExited(int pidfd) {
    struct pollfd pfd = {pidfd, POLLIN, 0};
    int n = TEMP_FAILURE_RETRY(poll(&pfd, 1, 0));
    return n != 0;
}

}  // namespace

PeerProcess::PeerProcess(int socket, pid_t pid) {
    int pidfd = -1;
    socklen_t len = sizeof(pidfd);
    if (getsockopt(socket, SOL_SOCKET, SO_PEERPIDFD, &pidfd, &len) == 0 && len == sizeof(pidfd)) {
        mPidfd.reset(pidfd);
        return;
    }
    if (errno != ENOPROTOOPT) {
        // The kernel knows the option but has no process for the peer.
        mGone = true;
        return;
    }
    // An older kernel: the process that holds the number now. If the peer
    // has exited, this may be another one; that gap stays on such kernels.
    int opened = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (opened >= 0) {
        mPidfd.reset(opened);
    } else if (errno != ENOSYS) {
        mGone = true;
    }
}

bool PeerProcess::alive() const {
    if (mGone) return false;
    return !mPidfd.ok() || !pidfdExited(mPidfd.get());
}

bool PeerProcess::keptAlive(int kept) { return kept < 0 || !pidfdExited(kept); }

}  // namespace pelk
