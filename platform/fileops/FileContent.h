// Moving file bytes between two descriptors: in the kernel where the two
// files allow it, through a buffer where they do not.
#pragma once

#include <sys/types.h>

namespace fileops {

// Copies `length` bytes of `from` at `offset` to `to` at the same offset, or
// everything from `offset` to the end of `from` when length is negative.
// Neither descriptor's file position is used. 0, or a negative errno; -EIO
// when `from` ends before `length` bytes were copied.
int copyBytes(int from, int to, off_t offset, long long length);

}  // namespace fileops
