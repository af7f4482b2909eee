// The process at the other end of a client's connection, held as a process
// rather than a number. A number is free to be handed to another process
// once its owner has exited; a pidfd names the one process it was opened for
// for as long as it is open, so "this number, and that process still alive"
// means "that very process".
#pragma once

#include <sys/types.h>

#include "base/UniqueFd.h"

namespace pelk {

class PeerProcess {
public:
    // The peer of the connected local socket, whose credentials gave pid.
    // The kernel's own record of the process that connected is used where
    // it has one (SO_PEERPIDFD); else a pidfd of whoever holds pid now, which
    // is the peer if the peer is still there; else, on a kernel without
    // pidfds, only the number.
    PeerProcess(int socket, pid_t pid);

    // False once the peer has exited: its number, and the /proc entry under
    // it, may then be another process's. True where only the number is
    // known.
    bool alive() const;

    // True when kept (a pidfd taken from an earlier PeerProcess, or -1 for
    // one known only by number) names a process that is still alive. Two
    // live processes never share a number, so a live peer with the number
    // of a live kept process is that process.
    static bool keptAlive(int kept);

    // Hands the pidfd over to be kept; -1 where only the number is known.
    [[nodiscard]] int release() { return mPidfd.release(); }

private:
    UniqueFd mPidfd;
    bool mGone = false;
};

}  // namespace pelk
