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

}  // namespace pelk
