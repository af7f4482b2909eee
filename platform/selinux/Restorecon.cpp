// Label restoring on the simulated device: the host has no device policy, so
// every call is recorded (path, user, flags, answer) for tests to check.
#include <log/record_file.h>
#include <selinux/android.h>
#include <selinux/restorecon_records.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "devprofile/DeviceProfile.h"

namespace {

hostlog::RecordFile& calls() {
    static auto* file = new hostlog::RecordFile("/sim/log/restorecon");
    return *file;
}

// "user flags result path", tab separated, the path escaped.
void record(const char* path, int userId, unsigned int flags, int result) {
    calls().append(std::to_string(userId) + '\t' + std::to_string(flags) + '\t' + std::to_string(result) + '\t' +
                   hostlog::escapeField(path ? path : "") + '\n');
}

}  // namespace

extern "C" int selinux_android_restorecon_internal(const char* path, int userId, unsigned int flags) {
    const bool armed = devprofile::shouldFail("selinux_android_restorecon_internal");
    int result = 0;
    int err = 0;
    struct stat st;
    if (armed) {
        result = -1;
        err = EIO;
    } else if (!path || lstat(path, &st) != 0) {
        result = -1;
        err = path ? errno : EINVAL;
    }
    record(path, userId, flags, result);
    if (result != 0) errno = err;
    return result;
}

std::vector<RestoreconCall> restorecon_calls() {
    std::vector<RestoreconCall> out;
    for (const std::string& line : hostlog::splitLines(calls().readAll())) {
        std::vector<std::string> f = hostlog::splitFields(line);
        if (f.size() != 4) continue;
        out.push_back({hostlog::unescapeField(f[3]), atoi(f[0].c_str()),
                       static_cast<unsigned int>(strtoul(f[1].c_str(), nullptr, 10)), atoi(f[2].c_str())});
    }
    return out;
}

void restorecon_clear() { calls().clear(); }

int restorecon_count(const std::string& path, int userId, long flags) {
    int n = 0;
    for (const auto& c : restorecon_calls())
        if (c.result == 0 && c.path == path && (userId < 0 || c.userId == userId) &&
            (flags < 0 || c.flags == static_cast<unsigned long>(flags)))
            ++n;
    return n;
}
