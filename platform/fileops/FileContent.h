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

// Gives fd the owner and then the mode (a chown clears the set-id bits that
// the mode then sets). 0, or the first call's negative errno.
int setOwnerAndMode(int fd, uid_t uid, gid_t gid, mode_t mode);

}  // namespace fileops
