// Whether a path is a mount point in the caller's own mount namespace, read
// from its mount table. The table escapes blanks, tabs, newlines and
// backslashes as octal (\040 ...); they are decoded before comparing. The
// path is compared exactly as given, not resolved: "/data/x/" (trailing
// slash) and "/data//x" are not the mount point "/data/x", so callers pass
// the canonical form they mounted with.
#include <persona/persona.h>

#include <stdio.h>
#include <string.h>

#include <string>

#include "base/UniqueHandle.h"
#include "devprofile/DeviceProfile.h"

namespace {

std::string unescapeMountField(const char* field, size_t length) {
    std::string out;
    out.reserve(length);
    for (size_t i = 0; i < length; ++i) {
        const char* p = field + i;
        if (i + 3 < length && p[0] == '\\' && p[1] >= '0' && p[1] <= '3' && p[2] >= '0' && p[2] <= '7' && p[3] >= '0' &&
            p[3] <= '7') {
            out += static_cast<char>((p[1] - '0') * 64 + (p[2] - '0') * 8 + (p[3] - '0'));
            i += 3;
        } else {
            out += *p;
        }
    }
    return out;
}

// The fifth blank-separated field of a mount table line ("id parent
// major:minor root mount-point ..."); false when the line has fewer.
bool mountPointField(const char* line, std::string* point) {
    const char* p = line;
    for (int field = 0; field < 4; ++field) {
        p = strchr(p, ' ');
        if (!p) return false;
        ++p;
    }
    size_t length = strcspn(p, " \n");
    if (length == 0) return false;
    *point = unescapeMountField(p, length);
    return true;
}

}  // namespace

extern "C" int isMountedPath(const char* path) {
    if (devprofile::shouldFail("isMountedPath")) return 0;
    if (!path || !*path) return 0;
    pelk::UniqueFile table(fopen("/proc/self/mountinfo", "re"));
    if (!table) return 0;
    // The mount point comes early in a line; when a line (its options) is
    // longer than the buffer, only its first piece is read and the rest is
    // skipped, so a continuation is never taken for a line of its own.
    char line[8192];
    bool atLineStart = true;
    std::string point;
    while (fgets(line, sizeof(line), table.get())) {
        bool wasLineStart = atLineStart;
        atLineStart = strchr(line, '\n') != nullptr;
        if (!wasLineStart) continue;
        if (mountPointField(line, &point) && point == path) return 1;
    }
    return 0;
}
