// Everything the engine reads from /proc, one function per question. A
// process may exit while it is being read, which on a busy device is the
// normal case: every reader then answers "nothing" (-1, false, no visit)
// and leaves the logging to its caller, who knows what the line must say.
#pragma once

#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include <functional>

namespace pelk {

// ---- one process ----

// "/proc/<pid>" (name null or empty) or "/proc/<pid>/<name>" into out;
// false when it does not fit.
bool procPath(char* out, size_t size, int pid, const char* name);

// Reads at most size - 1 bytes of "/proc/<pid>/cmdline" into out (size
// bytes, zero-filled here first), retrying interrupted reads. Arguments are
// separated by NULs, so out reads as the first argument. Answers the number
// of bytes read, or -1 when the file cannot be opened or read.
int readProcCmdline(int pid, char* out, size_t size);

// The first number on the line of "/proc/<pid>/status" whose first word is
// key (e.g. "PPid:", "Uid:"); -1 when the file cannot be opened or has no
// such line. Lines are read 1000 characters at a time, words cut at 200.
int readProcStatusNumber(int pid, const char* key);

// The owner uid of "/proc/<pid>", or -1 with errno set; *failedCall (when
// given) names the call that failed, "open" or "fstat".
int readProcOwnerUid(int pid, const char** failedCall = nullptr);

// The pid an all-digit /proc entry name stands for; -1 for a name with any
// other character or a number beyond int, 0 for "".
int pidOfProcName(const char* name);

// Calls visit(fd, target) for each descriptor of pid whose link target
// could be read, in directory order, until visit answers true; answers
// whether it did. Names too long for a 4096-byte path are passed over.
bool forEachFdTarget(int pid, const std::function<bool(int fd, const char* target)>& visit);

// Calls visit(line) for each line of "/proc/<pid>/maps", read in pieces of
// at most 4195 bytes (a longer line arrives as several), newline kept,
// until visit answers true; answers whether it did.
bool forEachMapLine(int pid, const std::function<bool(const char* line)>& visit);

// ---- mount tables ("/proc/mounts", "/proc/<pid>/mounts", ".../mountinfo") ----

// Lines are read as the daemon always has: at most 1023 characters at a
// time into a 1024-byte buffer, with the last character of each piece (its
// newline) overwritten by the terminator. A longer line thus arrives in
// pieces, each parsed as a line of its own. Fields are read with "%255s", so
// a longer field is cut at 255 characters.
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
