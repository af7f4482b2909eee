// What "/proc" says about a process: its command line and the numbers of
// its status file. Used to tell the platform's system_server from anyone
// else who can reach the socket.
#pragma once

#include <stddef.h>

namespace pelk {

// Reads at most size - 1 bytes of "/proc/<pid>/cmdline" into out (size
// bytes, zero-filled here first), retrying interrupted reads. Answers the
// number of bytes read, or -1 when the file cannot be opened or read.
int readProcCmdline(int pid, char* out, size_t size);

// The first number on the line of "/proc/<pid>/status" whose first word is
// key (e.g. "PPid:", "Uid:"); -1 when the file cannot be opened or has no
// such line.
int readProcStatusNumber(int pid, const char* key);

}  // namespace pelk

// Reads a process's command line into out, which the caller supplies
// zero-filled and at least 256 bytes long; answers its length up to the
// first NUL, or -1 (logged when the file cannot be opened).
int getProcCommand(int pid, char* out);
