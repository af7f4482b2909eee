// One input as the bytes a client sends on the "ppm" socket: every line
// goes through the framework's splitting and dispatch to the private-mode
// command of its word (these take any caller). The private-mode manager is
// the daemon's own singleton. Inputs may mount at any path and create or
// change key files inside the device, which is reset whenever the mount
// table changed and every few inputs in any case.
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>

#include "FuzzCheck.h"
#include "FuzzDevice.h"
#include "ListenerFeed.h"
#include "base/UniqueFd.h"
#include "command/CommandListenerPrivate.h"
#include "manager/PrivatePartitionManager.h"

namespace {

const int kResetEvery = 32;

class Listener : public CommandListenerPrivate {
public:
    using FrameworkListener::onDataAvailable;
};

struct State {
    Listener listener;
    pelk::UniqueFd listenerEnd;
    pelk::UniqueFd callerEnd;
};

State* setUp() {
    int pair[2];
    if (!fuzzdevice::reset() || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        fuzzcheck::fail("fuzz_ppm_command", "cannot set up the device");
    }
    PrivatePartitionManager::Instance();
    State* s = new State;
    s->listenerEnd.reset(pair[0]);
    s->callerEnd.reset(pair[1]);
    return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static State* s = setUp();
    fuzzdevice::clearLogWhenDue();
    fuzzfeed::feed(&s->listener, s->listenerEnd.get(), s->callerEnd.get(), data, size);
    fuzzdevice::resetWhenDue(kResetEvery);
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) { return fuzzdevice::enter() == 0 ? 0 : 1; }
