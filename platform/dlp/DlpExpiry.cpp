// Expiry of DLP files on the simulated device: the absolute expiry time is
// stored on the file itself (kDlpExpiryAttribute), where the device's
// filesystem would keep it, so it moves and dies with the file. The daemon
// learns of an expired file from the kernel's request, not from here.
#include <dlp/dlp.h>
#include <dlp/dlp_records.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <time.h>

#include <cerrno>

#include "DlpCallLog.h"
#include "DlpPolicy.h"
#include "devprofile/DeviceProfile.h"

namespace {

constexpr int kFileMissing = 2;

// 0, or -1 with errno set.
int writeExpiry(const char* path, long expiry) {
    if (!path) {
        errno = EINVAL;
        return -1;
    }
    char text[24];
    int len = snprintf(text, sizeof(text), "%ld", expiry);
    return setxattr(path, kDlpExpiryAttribute, text, static_cast<size_t>(len), 0) == 0 ? 0 : -1;
}

void record(const char* function, int pid, int userId, long expiry, const char* path, int result) {
    DlpCall call;
    call.function = function;
    call.pid = pid;
    call.userId = userId;
    call.value = expiry;
    call.path = path ? path : "";
    call.result = result;
    hostdlp::recordCall(call);
}

}  // namespace

extern "C" int set_dlp_file_expiry_time(char* path, long expiry) {
    int result;
    if (devprofile::shouldFail("set_dlp_file_expiry_time")) {
        errno = EIO;
        result = -1;
    } else {
        result = writeExpiry(path, expiry);
    }
    record("set_dlp_file_expiry_time", -1, -1, expiry, path, result);
    return result;
}

// The pid is the initialising process's; the host library only records it.
extern "C" int setExpiryforFile(int pid, char* path, int userId) {
    struct stat st;
    long expiry = 0;
    int result;
    if (devprofile::shouldFail("setExpiryforFile")) {
        errno = EIO;
        result = -1;
    } else if (path && stat(path, &st) != 0 && errno == ENOENT) {
        result = kFileMissing;
    } else {
        expiry = static_cast<long>(time(nullptr)) + hostdlp::lifetimeOf(userId);
        result = writeExpiry(path, expiry);
    }
    record("setExpiryforFile", pid, userId, expiry, path, result);
    return result;
}

long dlp_file_expiry(const char* path) {
    char text[24] = {};
    ssize_t len = getxattr(path, kDlpExpiryAttribute, text, sizeof(text) - 1);
    if (len <= 0) return -1;
    char* end = nullptr;
    long expiry = strtol(text, &end, 10);
    return end && *end == '\0' ? expiry : -1;
}
