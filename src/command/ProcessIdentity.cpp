#define LOG_TAG "pelkd"

#include "command/ProcessIdentity.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <log/log.h>

#include "base/UniqueFd.h"
#include "base/UniqueHandle.h"

namespace pelk {

int readProcCmdline(int pid, char* out, size_t size) {
    if (size == 0) return -1;
    memset(out, 0, size);
    char path[50] = {0};
    snprintf(path, sizeof(path), "/proc/%d/cmdline", pid);
    UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) return -1;
    ssize_t n = TEMP_FAILURE_RETRY(read(fd.get(), out, size - 1));
    return n < 0 ? -1 : static_cast<int>(n);
}

int readProcStatusNumber(int pid, const char* key) {
    char path[50] = {0};
    snprintf(path, sizeof(path), "/proc/%d/status", pid);
    UniqueFile status(fopen(path, "re"));
    if (!status) return -1;
    char line[1000];
    while (fgets(line, sizeof(line), status.get())) {
        char word[201] = {0};
        int number = -1;
        if (sscanf(line, "%200s %d\n", word, &number) < 1) continue;
        if (strcmp(word, key) == 0) return number;
    }
    return -1;
}

}  // namespace pelk

int getProcCommand(int pid, char* out) {
    char path[4096] = {0};
    snprintf(path, sizeof(path), "/proc/%d/cmdline", pid);
    pelk::UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) {
        ALOGE("Failed to open file %s for reading : %s\n", path,
                            strerror(errno));
        return -1;
    }
    if (TEMP_FAILURE_RETRY(read(fd.get(), out, 256)) < 0) return -1;
    // 256 bytes may all be text: never look past what the caller promised.
    return static_cast<int>(strnlen(out, 256));
}
