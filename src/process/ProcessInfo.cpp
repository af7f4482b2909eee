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

#include "process/ProcFs.h"
#include "process/ProcessKiller.h"

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
    // An unreadable process still gets a name in the holder lines.
    if (pelk::readProcCmdline(pid, buf, size) < 0) snprintf(buf, size, "???");
}

int ProcessKiller::getProcessUid(int pid) {
    const char* failedCall = nullptr;
    int uid = pelk::readProcOwnerUid(pid, &failedCall);
    if (uid < 0) SLOGE("%s failed (%s)", failedCall, strerror(errno));
    return uid;
}

int ProcessKiller::getPid(const char* name) { return pelk::pidOfProcName(name); }
