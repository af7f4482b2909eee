// Whole copies and removals of directory entries, relative to open
// directories, never following a symbolic link.
#pragma once

#include <sys/stat.h>

namespace fileops {

// Copies the entry srcName of srcDir to the new entry dstName of dstDir, as
// "cp -a" would for one entry: a regular file with its content, a directory
// with everything below it, a symbolic link as the link itself (its text
// unchanged, never followed); each with mode, owner and times. Devices,
// FIFOs and sockets are passed over: a copy never creates a special file in
// another container. The target must not exist (-EEXIST). 0, or a negative
// errno; a failed copy may leave part of the target behind (see removeEntry).
int copyEntry(int srcDir, const char* srcName, int dstDir, const char* dstName);

// Removes the entry and, for a directory, everything below it. Links are
// removed, never followed. 0, or the first negative errno.
int removeEntry(int dir, const char* name);

}  // namespace fileops
