// The sensitive-data library of the simulated device: marking a file is
// tagging it with an extended attribute naming the engine. The tag is set on
// the entry itself, never through a symbolic link, so marking a link marks
// nothing outside the tree (links and device nodes cannot carry the tag and
// answer -1, which the daemon ignores).
#include <log/record_file.h>
#include <sdp/sdp.h>
#include <sdp/sdp_records.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/xattr.h>

#include <cerrno>
#include <string>

#include "devprofile/DeviceProfile.h"

namespace {

constexpr size_t kFields = 4;

hostlog::RecordFile& calls() {
    static auto* file = new hostlog::RecordFile("/sim/log/sdp");
    return *file;
}

void record(const char* function, int userId, const char* path, int result) {
    int saved = errno;
    calls().append(std::string(function) + '\t' + std::to_string(userId) + '\t' + std::to_string(result) + '\t' +
                   hostlog::escapeField(path ? path : "") + '\n');
    errno = saved;
}

// 0, or -1 with errno set.
int tag(const char* function, const char* path, const char* name, const char* value) {
    if (devprofile::shouldFail(function)) {
        errno = EIO;
        return -1;
    }
    if (!path) {
        errno = EINVAL;
        return -1;
    }
    return lsetxattr(path, name, value, strlen(value), 0) == 0 ? 0 : -1;
}

// The tag's text; empty when the entry has none.
std::string readTag(const char* path, const char* name) {
    char text[16] = {};
    ssize_t len = path ? lgetxattr(path, name, text, sizeof(text) - 1) : -1;
    return len > 0 ? std::string(text, static_cast<size_t>(len)) : std::string();
}

}  // namespace

extern "C" int set_sensitive(int userId, char* path) {
    char engine[16];
    snprintf(engine, sizeof(engine), "%d", userId);
    int result = tag("set_sensitive", path, kSdpSensitiveAttribute, engine);
    record("set_sensitive", userId, path, result);
    return result;
}

extern "C" int set_protected(char* path) {
    int result = tag("set_protected", path, kSdpProtectedAttribute, "1");
    record("set_protected", -1, path, result);
    return result;
}

std::vector<SdpCall> sdp_calls() {
    std::vector<SdpCall> out;
    for (const std::string& text : hostlog::splitLines(calls().readAll())) {
        std::vector<std::string> f = hostlog::splitFields(text);
        if (f.size() != kFields) continue;
        out.push_back({f[0], atoi(f[1].c_str()), hostlog::unescapeField(f[3]), atoi(f[2].c_str())});
    }
    return out;
}

void sdp_calls_clear() { calls().clear(); }

int sdp_sensitive_of(const char* path) {
    std::string text = readTag(path, kSdpSensitiveAttribute);
    return text.empty() ? -1 : atoi(text.c_str());
}

bool sdp_is_protected(const char* path) { return !readTag(path, kSdpProtectedAttribute).empty(); }
