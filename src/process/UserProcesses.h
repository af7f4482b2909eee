// The walk over the device's processes that the namespace workers use to find
// the processes of an Android user: every /proc entry that names a process,
// with its directory open and its owner known, so that the caller can choose
// by user and open the process's mount namespace without a second lookup by
// pid (which could meet another process that reused the number).
#pragma once

#include <stddef.h>
#include <sys/types.h>

#include <functional>

#include "base/UniqueFd.h"
#include "base/UniqueHandle.h"

namespace pelk {

// The Android user of a uid: apps of user N run as N * 100000 + app id.
int androidUserOf(uid_t uid);

// One process met by the walk.
struct ProcessEntry {
    pid_t pid;
    const char* name;  // its /proc entry name: the pid as text
    int dirFd;         // its /proc directory, open read-only; valid during the visit only
    uid_t uid;         // owner of its /proc directory
};

class ProcessWalk {
public:
    // Opens /proc; ok() tells whether that worked.
    ProcessWalk();
    bool ok() const { return static_cast<bool>(mProc); }

    // Calls visit for every entry that is a directory named by a number that
    // fits in 32 bits (as strtol with base 0 reads it), once its directory is
    // open and stat'ed. An entry whose directory cannot be stat'ed goes to
    // statFailed (when given) with its name instead; one that cannot be
    // opened (the process is gone) is passed over. The walk may run again.
    void forEach(const std::function<void(const ProcessEntry&)>& visit,
                 const std::function<void(const char*)>& statFailed = nullptr);

private:
    UniqueDir mProc;
};

// The process's mount namespace, open read-only (close-on-exec).
UniqueFd openMountNamespace(const ProcessEntry& process);
// Reads the process's "ns/mnt" link ("mnt:[inode]") into out, terminated;
// false when it cannot be read.
bool readMountNamespaceLink(const ProcessEntry& process, char* out, size_t size);

}  // namespace pelk
