// Shared pieces of the container benchmarks: a device set up as the
// platform leaves it for the daemon (the older scheme, containers listed in
// the profile, their keys in the key store, their areas made), the mount
// table's size, and timing that also reports the engine's deliberate sleeps.
#pragma once

#include <stdio.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "Sandbox.h"
#include "WalkBench.h"
#include "devprofile/DeviceProfile.h"
#include "manager/Pelk.h"

namespace containerbench {

// Container users are numbered from here.
constexpr int kFirstUser = 10;

// Storage the daemon mounts itself, with the engine's sleeps shrunk by scale.
inline void setUpDevice(double scale) {
    devprofile::requestedSleepMicros();  // counting from here, forked workers included
    devprofile::set("fbe", "0");
    devprofile::set("ode", "1");
    devprofile::set("time.scale", std::to_string(scale));
}

// Lists the container in the profile, gives it CE and DE keys in the key
// store and makes its CE and DE areas ("create_partition"), as the platform
// does when it creates one. False when something failed.
inline bool provisionContainer(Pelk& pelk, int user) {
    devprofile::set("user." + std::to_string(user), "zanth,legacy");
    if (pelk.forceCreateStorage(user, 0) != 0 || pelk.forceCreateStorage(user, 1) != 0) return false;
    const std::string prov = sim::toolPath("pelkprov");
    const std::string id = std::to_string(user);
    return walkbench::runQuiet({prov, "key", id, "1", "4", "random"}) == 0 &&
           walkbench::runQuiet({prov, "key", id, "2", "4", "random"}) == 0;
}

// Takes the container's storage down as the manager's teardown does.
inline void tearDownContainer(Pelk& pelk, int user) {
    pelk.unmountStorageCe(user);
    pelk.unmountStorageDe(user);
}

// Entries of this process's mount table.
inline int mountCount() {
    std::ifstream in("/proc/self/mounts");
    std::string line;
    int n = 0;
    while (std::getline(in, line)) ++n;
    return n;
}

// What one timed piece of work cost: its seconds at the time scale in use,
// and the seconds of sleep the engine asked for meanwhile (in this process
// and in the workers it forked and that ended within it), which is what the
// deliberate waits add at time scale 1.
struct Measured {
    double seconds;
    double sleepsAtScale1;
};

inline Measured measure(const std::function<void()>& work) {
    unsigned long long before = devprofile::requestedSleepMicros();
    double t = walkbench::seconds(work);
    return {t, static_cast<double>(devprofile::requestedSleepMicros() - before) / 1e6};
}

// The host kernel's registry of eCryptfs mounts keeps every mount ever made
// (it is not trimmed on unmount) and is read whole with every mount table;
// a booting device starts with none. Emptied between runs so that each run
// is a boot, not a boot after every earlier run. Only call it with no
// eCryptfs mount standing.
inline void forgetEarlierBoots() { truncate("/sim/kernel/ecryptfs", 0); }

}  // namespace containerbench
