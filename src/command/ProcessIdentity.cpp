#define LOG_TAG "pelkd"

#include "command/ProcessIdentity.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <log/log.h>

#include "base/UniqueFd.h"
#include "process/ProcFs.h"

int getProcCommand(int pid, char* out) {
    char path[4096] = {0};
    pelk::procPath(path, sizeof(path), pid, "cmdline");
    pelk::UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) {
        ALOGE("Failed to open file %s for reading : %s\n", path, strerror(errno));
        return -1;
    }
    if (TEMP_FAILURE_RETRY(read(fd.get(), out, 256)) < 0) return -1;
    // 256 bytes may all be text: never look past what the caller promised.
    return static_cast<int>(strnlen(out, 256));
}
