// One input as the bytes system_server sends on the "pelk" socket: every
// line goes through the framework's splitting and dispatch to the command of
// its word, from a caller the check accepts, so each registered command's
// own parsing and work runs on what the input says. The container manager
// is the daemon's own singleton; the device holds two container users so
// that the commands find someone to act for. An input that starts with '!'
// runs (without that byte) on a device without file-based encryption, where
// the partition and mount commands do their whole work rather than refuse
// (user 10 is a legacy container there, as in the storage tests).
// Inputs may mount, create and
// delete freely inside the device, which is reset whenever the mount table
// changed and every few inputs in any case.
#include <devprofile/DeviceProfile.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include <mutex>

#include "FuzzCheck.h"
#include "FuzzDevice.h"
#include "ListenerFeed.h"
#include "SystemServerCaller.h"
#include "command/CommandListenerEnterprise.h"
#include "manager/Pelk.h"

namespace {

// Inputs between two resets when none changed the mount table.
const int kResetEvery = 32;

class Listener : public CommandListenerEnterprise {
public:
    using FrameworkListener::onDataAvailable;
};

const char kTarget[] = "fuzz_pelk_command";

// A line of the caller must reach the commands, not the refusal: else
// every input would only ever fuzz the caller check.
void checkAccepted(Listener* listener, const fuzzcaller::SystemServerCaller& caller) {
    const char probe[] = "1 is_mounted 10\n";
    if (!pelk::writeFully(caller.callerEnd(), probe, strlen(probe))) fuzzcheck::fail(kTarget, "cannot send the probe");
    SocketClient* client = new SocketClient(caller.listenerEnd(), false, true);
    listener->onDataAvailable(client);
    client->decRef();
    char reply[256] = {};
    ssize_t n = recv(caller.callerEnd(), reply, sizeof(reply) - 1, MSG_DONTWAIT);
    if (n <= 0 || strstr(reply, "Permission denied")) fuzzcheck::fail(kTarget, "the caller is refused");
    fuzzfeed::drainReplies(caller.callerEnd());
}

// What the device holds for the commands after every reset.
void prepareDevice(Listener* listener, fuzzcaller::SystemServerCaller* caller) {
    if (!devprofile::set("user.10", "zanth,legacy") || !devprofile::set("user.11", "zanth"))
        fuzzcheck::fail(kTarget, "cannot write the profile");
    // The manager's own record of unlocked users and workers went with the
    // mounts and processes of the reset.
    Pelk::isUnlockedByCe.clear();
    {
        std::lock_guard<std::mutex> lock(Pelk::remountChildListLock);
        Pelk::remountChildList.clear();
    }
    if (!caller->start()) fuzzcheck::fail(kTarget, "cannot start system_server");
    checkAccepted(listener, *caller);
}

struct State {
    Listener listener;
    fuzzcaller::SystemServerCaller caller;
    bool fileBasedEncryption = true;  // the profile's default after a reset
};

void setFileBasedEncryption(State* s, bool on) {
    if (s->fileBasedEncryption == on) return;
    // Without it, as the storage tests' legacy device: encryption running.
    if (!devprofile::set("fbe", on ? "1" : "0") || !devprofile::set("ode", on ? "0" : "1"))
        fuzzcheck::fail(kTarget, "cannot write the profile");
    s->fileBasedEncryption = on;
}

State* setUp() {
    if (!fuzzdevice::reset()) fuzzcheck::fail(kTarget, "cannot set up the device");
    Pelk::Instance();
    State* s = new State;
    prepareDevice(&s->listener, &s->caller);
    return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static State* s = setUp();
    fuzzdevice::clearLogWhenDue();
    bool withoutFbe = size > 0 && data[0] == '!';
    setFileBasedEncryption(s, !withoutFbe);
    if (withoutFbe) ++data, --size;
    fuzzfeed::feed(&s->listener, s->caller.listenerEnd(), s->caller.callerEnd(), data, size);
    if (fuzzdevice::resetWhenDue(kResetEvery)) {
        s->fileBasedEncryption = true;
        prepareDevice(&s->listener, &s->caller);
    }
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) { return fuzzdevice::enter() == 0 ? 0 : 1; }
