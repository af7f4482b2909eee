// Bounded formatting into a partition path buffer (PATH_SIZE bytes).
#pragma once

#include <stdarg.h>
#include <stdio.h>

#include "partition/Partition.h"

namespace pelk {

// Over-long results are cut to PATH_SIZE - 1 characters; answers false when
// that happened, so a caller can refuse to act on a cut path.
__attribute__((format(printf, 2, 3))) inline bool formatPath(char* out, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int n = vsnprintf(out, Partition::PATH_SIZE, format, args);
    va_end(args);
    return n >= 0 && n < Partition::PATH_SIZE;
}

// Formats a path below an area's path: base, then what format gives. An area
// of unknown type has a zero-length path, which names no directory at all;
// joined as it stands it would name something at the root of the device. The
// result is then zero-length too: a path that does not exist and cannot be
// made, which every operation already treats as a missing one. Answers false
// only when the result was cut.
__attribute__((format(printf, 3, 4))) inline bool formatBelow(char* out, const char* base, const char* format, ...) {
    out[0] = '\0';
    if (base[0] == '\0') return true;
    int n = snprintf(out, Partition::PATH_SIZE, "%s", base);
    if (n < 0 || n >= Partition::PATH_SIZE) return false;
    va_list args;
    va_start(args, format);
    int m = vsnprintf(out + n, static_cast<size_t>(Partition::PATH_SIZE - n), format, args);
    va_end(args);
    return m >= 0 && m < Partition::PATH_SIZE - n;
}

}  // namespace pelk
