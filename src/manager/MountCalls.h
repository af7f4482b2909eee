// The mount system calls that the storage operations, the namespace walkers
// and the teardown share. Each one retries an interrupted call and answers 0
// or the negated errno, so callers read as a sequence of steps.
//
// None of them logs or allocates: they also run in children forked from the
// daemon, which may only make async-signal-safe calls before they exit. The
// callers log the failure with their own line.
#pragma once

namespace pelk {

// Binds src on dst (no filesystem type, no data).
int bindMount(const char* src, const char* dst);
// Detaches the mount at path with umount2 and the given flags.
int detachMount(const char* path, int flags);
// Moves the calling process into the mount namespace open at nsFd.
int enterMountNamespace(int nsFd);

}  // namespace pelk
