// The simulated device: a sandbox of new mount and PID namespaces (and a user
// namespace when not root) around a tmpfs root laid out like a device. The
// host's system folders are bound read-only, the source and build trees at
// their own paths, and a fresh /proc shows only the sandbox's processes, so
// nothing done inside (mounts, files, signals) reaches the host.
#pragma once

#include <string>

namespace sim {

struct SandboxOptions {
    // Host folder whose "data" subfolder becomes the device's /data and
    // survives the sandbox (make run). Empty: everything is fresh.
    std::string stateDir;
};

// Enters a new sandbox. Returns 0 in the sandboxed process, which is the
// only child of the sandbox's init; the calling process never returns: it
// waits and exits with the sandboxed process's status. Already inside a
// sandbox, returns 0 at once. Without root or user namespaces prints one
// sentence and exits with status 1.
int enterSandbox(const SandboxOptions& options = {});

// True inside a sandbox (PELK_SANDBOX=1).
bool insideSandbox();

// Lays out the device folders (idempotent).
int buildDeviceTree();

// Brings the device back to a clean state: every other process of the
// sandbox killed, every mount made since boot undone, the device folders
// emptied and laid out again, the profile reset to its defaults. Answers 0,
// or -1 (with a message on stderr) when something could not be undone.
int resetDevice();

// Path of a program built beside the sandbox (e.g. "pelkd").
std::string toolPath(const char* name);

}  // namespace sim
