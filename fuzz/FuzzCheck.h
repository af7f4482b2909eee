// How a fuzz target stops on a failed check: one line naming the target
// (and the input's size, when it matters), then abort(), so that the fuzzer
// keeps the input that failed.
#pragma once

#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>

namespace fuzzcheck {

[[noreturn]] inline void fail(const char* target, const char* what) {
    fprintf(stderr, "%s: %s\n", target, what);
    abort();
}

[[noreturn]] inline void fail(const char* target, const char* what, size_t size) {
    fprintf(stderr, "%s: %s (input of %zu bytes)\n", target, what, size);
    abort();
}

}  // namespace fuzzcheck
