// These lines carry no tag on the device either.
#define LOG_TAG nullptr

#include "tools/CloseOnExec.h"

#include <fcntl.h>
#include <log/log.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/UniqueHandle.h"
#include "base/DirEntry.h"

namespace {
constexpr int kPathSize = 4096;
}

void changeInheritTypeForFile(const char* path, bool closeOnExec) {
    ALOGD("changeInheritTypeForFile::Entering\n");
    if (!path || path[0] == '\0') return;

    char fdDir[kPathSize];
    snprintf(fdDir, sizeof(fdDir), "/proc/%d/fd", getpid());
    pelk::UniqueDir dir(opendir(fdDir));
    if (!dir || dirfd(dir.get()) < 0) return;

    while (dirent* entry = readdir(dir.get())) {
        if (pelk::isDotOrDotDot(entry->d_name)) continue;
        if (entry->d_type != DT_LNK) continue;
        char linkPath[kPathSize];
        int len = snprintf(linkPath, sizeof(linkPath), "%s/%s", fdDir, entry->d_name);
        if (len < 0 || len >= static_cast<int>(sizeof(linkPath))) continue;
        char target[kPathSize] = {};
        ssize_t n = readlink(linkPath, target, sizeof(target) - 1);
        if (n <= 0 || strcmp(target, path) != 0) continue;
        // FD_CLOEXEC is the only descriptor flag: false clears them all.
        fcntl(atoi(entry->d_name), F_SETFD, closeOnExec ? FD_CLOEXEC : 0);
    }
}
