// Readers of the kernel's mount tables ("/proc/mounts", "/proc/<pid>/mounts",
// "/proc/<pid>/mountinfo"), shared by every mount-state question.
//
// Lines are read as the daemon always has: at most 1023 characters at a
// time into a 1024-byte buffer, with the last character of each piece (its
// newline) overwritten by the terminator. A longer line thus arrives in
// pieces, each parsed as a line of its own. Fields are read with "%255s", so
// a longer field is cut at 255 characters.
#pragma once

#include <stdio.h>
#include <string.h>

namespace pelk {

constexpr int MOUNT_LINE_SIZE = 1024;

// Calls visit(line) for every line piece of the table until visit answers
// true; answers whether it did.
template <typename Visit>
bool forEachMountLine(FILE* table, Visit visit) {
    char line[MOUNT_LINE_SIZE];
    while (fgets(line, sizeof(line), table)) {
        size_t len = strlen(line);
        if (len > 0) line[len - 1] = '\0';
        if (visit(line)) return true;
    }
    return false;
}

// True when a "mounts"-format table has a line whose mount point (second
// field) is exactly mountPoint.
bool mountTableHas(FILE* table, const char* mountPoint);

}  // namespace pelk
