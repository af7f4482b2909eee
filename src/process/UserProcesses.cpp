#include "process/UserProcesses.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <private/android_filesystem_config.h>

#include "base/DirEntry.h"

namespace pelk {

namespace {

// The pid a /proc entry name stands for; false for any name that is not
// wholly a number that fits in 32 bits.
bool parsePid(const char* name, pid_t* pid) {
    errno = 0;
    char* end = nullptr;
    long value = strtol(name, &end, 0);
    if (errno != 0 || end == name || *end != '\0' || value < INT32_MIN || value > INT32_MAX) return false;
    *pid = static_cast<pid_t>(value);
    return true;
}

}  // namespace

int androidUserOf(uid_t uid) { return static_cast<int>(uid / AID_USER_OFFSET); }

ProcessWalk::ProcessWalk() : mProc(opendir("/proc")) {}

void ProcessWalk::forEach(const std::function<void(const ProcessEntry&)>& visit,
                          const std::function<void(const char*)>& statFailed) {
    if (!mProc) return;
    rewinddir(mProc.get());
    const int procFd = dirfd(mProc.get());
    while (dirent* entry = readdir(mProc.get())) {
        if (entryType(procFd, entry) != DT_DIR) continue;
        pid_t pid = 0;
        if (!parsePid(entry->d_name, &pid)) continue;
        UniqueFd dir(openat(procFd, entry->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!dir.ok()) continue;
        struct stat st;
        if (fstat(dir.get(), &st) != 0) {
            if (statFailed) statFailed(entry->d_name);
            continue;
        }
        visit(ProcessEntry{pid, entry->d_name, dir.get(), st.st_uid});
    }
}

UniqueFd openMountNamespace(const ProcessEntry& process) {
    return UniqueFd(openat(process.dirFd, "ns/mnt", O_RDONLY | O_CLOEXEC));
}

bool readMountNamespaceLink(const ProcessEntry& process, char* out, size_t size) {
    if (size == 0) return false;
    ssize_t n = readlinkat(process.dirFd, "ns/mnt", out, size - 1);
    if (n < 0) return false;
    out[n] = '\0';
    return true;
}

}  // namespace pelk
