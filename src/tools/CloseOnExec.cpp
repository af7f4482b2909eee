// These lines carry no tag on the device either.
#define LOG_TAG nullptr

#include "tools/CloseOnExec.h"

#include <fcntl.h>
#include <log/log.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "process/ProcFs.h"

void changeInheritTypeForFile(const char* path, bool closeOnExec) {
    ALOGD("changeInheritTypeForFile::Entering\n");
    if (!path || path[0] == '\0') return;

    pelk::forEachFdTarget(getpid(), [&](int fd, const char* target) {
        // FD_CLOEXEC is the only descriptor flag: false clears them all.
        if (strcmp(target, path) == 0) fcntl(fd, F_SETFD, closeOnExec ? FD_CLOEXEC : 0);
        return false;
    });
}
