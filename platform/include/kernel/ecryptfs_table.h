// Host-only: the eCryptfs mounts of the simulated device's kernel.
//
// The host kernel has no eCryptfs. The host edition of mount_ecryptfs makes
// a real bind mount of the lower directory at the upper one and registers it
// here; from then on the mount tables that device programs open with fopen
// ("/proc/mounts", "/proc/self/mounts", "/proc/<pid>/mounts" and the
// "mountinfo" forms) show that mount as the device's kernel shows an eCryptfs
// mount. The seam itself and its limits are described in
// platform/kernel/EcryptfsMountTable.cpp.
#pragma once

#include <string>
#include <vector>

namespace hostkernel {

// One registered mount. device, root and point are as the kernel's
// mountinfo writes them ("0:42", octal escapes kept); lower is plain.
struct EcryptfsMount {
    std::string device;
    std::string root;
    std::string point;
    std::string lower;
    int userId;
    int partitionId;
};

// Registers the newest mount at `point` (an absolute, canonical path) in the
// caller's mount namespace as an eCryptfs mount of `lower`. False when no
// mount is at `point` or the registry cannot be written.
bool registerEcryptfsMount(const char* point, const char* lower, int userId, int partitionId);

// Every registered mount, oldest first; a mount registered again (same
// device, root and point) appears once, with its newest values.
std::vector<EcryptfsMount> ecryptfsMounts();

// The mount table at `path` (one of the forms above) as the device's kernel
// writes it; false with errno set when the kernel's table cannot be read.
bool renderMountTable(const char* path, std::string* out);

}  // namespace hostkernel
