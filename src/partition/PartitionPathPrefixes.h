// Walks the directory prefixes of a path the way the directory makers build
// them: a leading slash kept, then each component followed by a slash
// ("/a/", "/a/b/", "/a/b/c/"); empty components are skipped.
#pragma once

#include <string.h>

#include "partition/Partition.h"

namespace pelk {

// Room for a path of PATH_SIZE - 1 characters plus the slash added after
// its last component and the terminator.
constexpr size_t kPrefixBufferSize = Partition::PATH_SIZE + 2;

// Calls step(prefix) for each prefix in turn and stops at the first non-zero
// answer, which it returns; 0 when every step answered 0. With stopAtPath,
// the walk also ends (answering 0) once the prefix built so far begins with
// the whole path. The empty path (an area of unknown type) is one prefix,
// itself: it names nothing and cannot be made, so the step's failure is
// what the caller reports, and nothing is made at the root instead.
template <typename Step>
int walkPathPrefixes(const char* path, bool stopAtPath, Step step) {
    if (path[0] == '\0') return step(path);
    const size_t pathLen = strlen(path);
    char built[kPrefixBufferSize];
    size_t len = 0;
    if (path[0] == '/') built[len++] = '/';
    built[len] = '\0';

    const char* p = path;
    for (;;) {
        while (*p == '/') ++p;
        if (*p == '\0') return 0;
        if (stopAtPath && strncmp(built, path, pathLen) == 0) return 0;
        const char* end = strchr(p, '/');
        const size_t componentLen = end ? static_cast<size_t>(end - p) : strlen(p);
        if (len + componentLen + 2 > sizeof(built)) return -1;
        memcpy(built + len, p, componentLen);
        len += componentLen;
        built[len++] = '/';
        built[len] = '\0';
        if (int r = step(static_cast<const char*>(built))) return r;
        p += componentLen;
    }
}

}  // namespace pelk
