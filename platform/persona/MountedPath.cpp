// Whether a path is a mount point in the caller's own mount namespace, read
// from its mount table. The table escapes blanks, tabs, newlines and
// backslashes as octal (\040 ...); they are decoded before comparing. The
// comparison is exact: "/data/x/" is not the mount point "/data/x".
#include <persona/persona.h>

#include <stdio.h>
#include <string.h>

#include <string>

#include "devprofile/DeviceProfile.h"
#include "tools/Resources.h"

namespace {

std::string unescapeMountField(const char* field) {
    std::string out;
    for (const char* p = field; *p; ++p) {
        if (p[0] == '\\' && p[1] >= '0' && p[1] <= '3' && p[2] >= '0' && p[2] <= '7' && p[3] >= '0' &&
            p[3] <= '7') {
            out += static_cast<char>((p[1] - '0') * 64 + (p[2] - '0') * 8 + (p[3] - '0'));
            p += 3;
        } else {
            out += *p;
        }
    }
    return out;
}

}  // namespace

extern "C" int isMountedPath(const char* path) {
    if (devprofile::shouldFail("isMountedPath")) return 0;
    if (!path || !*path) return 0;
    pelk::UniqueFile table(fopen("/proc/self/mountinfo", "re"));
    if (!table) return 0;
    char line[8192];
    while (fgets(line, sizeof(line), table.get())) {
        // id parent major:minor root mount-point ...
        char point[4096];
        if (sscanf(line, "%*s %*s %*s %*s %4095s", point) != 1) continue;
        if (unescapeMountField(point) == path) return 1;
    }
    return 0;
}
