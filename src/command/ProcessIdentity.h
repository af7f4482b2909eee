// The exported command-line reader the daemon offers beside the caller check
// (which asks process/ProcFs.h itself).
#pragma once

#include <stddef.h>

// Reads a process's command line into out, which the caller supplies
// zero-filled and at least 256 bytes long; answers its length up to the
// first NUL, or -1 (logged when the file cannot be opened).
int getProcCommand(int pid, char* out);
