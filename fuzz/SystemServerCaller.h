// A connection that the "pelk" caller check accepts, made the honest way:
// its peer is a process whose command line is "system_server", whose parent
// is "zygote64" running as root. Both are forked from the fuzz target and
// wait until they are killed (a device reset does, and so does the target's
// end); the one made by "system_server" is a socket pair, so both of its ends
// carry that process's credentials and the target holds both.
#pragma once

#include <sys/types.h>

#include "base/UniqueFd.h"

namespace fuzzcaller {

class SystemServerCaller {
public:
    // Forks the two processes and takes the pair. False when that failed.
    bool start();
    // Ends the two processes (if still there) and drops the pair.
    void stop();
    // The end a listener reads lines from and answers on.
    int listenerEnd() const { return mListenerEnd.get(); }
    // The end the lines are written to and the answers read from.
    int callerEnd() const { return mCallerEnd.get(); }

private:
    pid_t mZygote = -1;
    pelk::UniqueFd mListenerEnd;
    pelk::UniqueFd mCallerEnd;
};

}  // namespace fuzzcaller
