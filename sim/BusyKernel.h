// A kernel that refuses some unmounts. The host kernel takes even a busy
// mount away at once when asked to detach it; to see what the daemon does
// when an unmount fails (its tries, and the process killer between them),
// work runs in a child whose umount2 calls are handed to the starting
// process (a seccomp user notification) and answered EBUSY while busy(target)
// says so; every other call goes on to the kernel unchanged.
//
// Tests use runWithBusyKernel around engine calls; the device program
// "busy-kernel" runs a command (pelkd) under it (sim/tool_busy-kernel.cpp).
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace sim {

// Runs work() in a child under the filter and answers its umount2 calls
// until it exits. started(child) is called once the child runs. Answers
// work()'s result (0..255), 128 + the signal that ended the child, or -1
// when the set-up failed.
int runWithBusyKernel(const std::function<int()>& work, const std::function<bool(const std::string&)>& busy,
                      const std::function<void(pid_t)>& started = nullptr);

// The same, with a refusal that does not depend on the path.
int runWithBusyKernel(const std::function<int()>& work, const std::function<bool()>& busy);

// True while some process has a descriptor open on a file at or under path
// (as /proc/<pid>/fd shows it).
bool heldUnder(const std::string& path);

}  // namespace sim
