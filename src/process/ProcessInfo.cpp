// Small readers of one /proc entry: its pid, name, owner, and link targets,
// plus the rule deciding whether a path lies under a mount point.
#define LOG_TAG "ProcessKiller"

#include <fcntl.h>
#include <log/log.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "process/ProcessKiller.h"
#include "base/UniqueFd.h"


bool ProcessKiller::pathMatchesMountPoint(const char* path, const char* mountPoint) {
    const size_t n = strlen(mountPoint);
    // "/" (or any one character) would match the whole device.
    if (n < 2) return false;
    if (strncmp(path, mountPoint, n) != 0) return false;
    return mountPoint[n - 1] == '/' || path[n] == '\0' || path[n] == '/';
}

bool ProcessKiller::readSymLink(const char* path, char* buf, size_t size) {
    if (size == 0) return false;
    // readlink itself refuses anything that is not a symbolic link (EINVAL),
    // so no lstat is needed first.
    ssize_t len = readlink(path, buf, size - 1);
    if (len < 0) return false;
    buf[len] = '\0';
    return true;
}

void ProcessKiller::getProcessName(int pid, char* buf, size_t size) {
    if (size == 0) return;
    // Built apart from the caller's buffer, which may be too small for it.
    char path[64];
    snprintf(path, sizeof(path), "/proc/%d/cmdline", pid);
    pelk::UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) {
        snprintf(buf, size, "???");
        return;
    }
    ssize_t len = read(fd.get(), buf, size - 1);
    // Arguments are separated by zero bytes, so the terminated buffer reads
    // as the first argument alone.
    buf[len > 0 ? len : 0] = '\0';
}

int ProcessKiller::getProcessUid(int pid) {
    char path[64];
    snprintf(path, sizeof(path), "/proc/%d", pid);
    pelk::UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) {
        SLOGE("open failed (%s)", strerror(errno));
        return -1;
    }
    struct stat st;
    if (fstat(fd.get(), &st) != 0) {
        SLOGE("fstat failed (%s)", strerror(errno));
        return -1;
    }
    return static_cast<int>(st.st_uid);
}

int ProcessKiller::getPid(const char* name) {
    long long value = 0;
    for (const char* c = name; *c; ++c) {
        if (*c < '0' || *c > '9') return -1;
        value = value * 10 + (*c - '0');
        // No process has a pid this large; treat it as a name that is no pid.
        if (value > INT_MAX) return -1;
    }
    return static_cast<int>(value);
}
