// The two walks over /proc: the forward one used before removing a file (an
// action code, no wait) and the reverse one used by the unmount retries (a
// raw signal number, then a short wait for each signalled process to go).
#define LOG_TAG "ProcessKiller"

#include <dirent.h>
#include <log/log.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <private/android_filesystem_config.h>
#include <cerrno>

#include "base/UniqueHandle.h"
#include "process/ProcFs.h"
#include "process/ProcessKiller.h"

namespace {

constexpr size_t kPathSize = 4096;
constexpr int kSystemUid = AID_SYSTEM;
constexpr int kDeathChecks = 3;
constexpr useconds_t kDeathPollUs = 500 * 1000;

// Owns the entry list of scandir: every entry and the array itself.
class ScandirList {
public:
    explicit ScandirList(const char* path) { count_ = scandir(path, &entries_, nullptr, alphasort); }
    ~ScandirList() {
        for (int i = 0; i < count_; ++i) free(entries_[i]);
        free(entries_);
    }
    ScandirList(const ScandirList&) = delete;
    ScandirList& operator=(const ScandirList&) = delete;

    int count() const { return count_; }
    const char* name(int i) const { return entries_[i]->d_name; }

private:
    dirent** entries_ = nullptr;
    int count_ = -1;
};

void logHolder(const char* prefix, const char* what, const char* name, int pid, const char* third) {
    SLOGE("%sProcess %s (%d) has %s %s", prefix, name, pid, what, third);
}

// Polls until /proc/<pid> is gone, three times at most.
void waitForDeath(int pid) {
    char path[256];
    pelk::procPath(path, sizeof(path), pid, nullptr);
    for (int i = 0; i < kDeathChecks && access(path, F_OK) == 0; ++i) {
        SLOGD("Wait for death %s ", path);
        usleep(kDeathPollUs);
    }
}

}  // namespace

bool ProcessKiller::reportHolder(int pid, const char* path, const char* prefix) {
    char name[kPathSize];
    getProcessName(pid, name, sizeof(name));
    if (name[0] != '\0' && strcmp(name, "system_server") == 0 && getProcessUid(pid) == kSystemUid) {
        SLOGW("Process %d is System server process.. do not kill it!", pid);
        return false;
    }

    char found[kPathSize];
    if (checkFileDescriptorSymLinks(pid, path, found, sizeof(found))) {
        logHolder(prefix, "open file", name, pid, found);
    } else if (checkFileMaps(pid, path, found, sizeof(found))) {
        logHolder(prefix, "open filemap for", name, pid, found);
    } else if (checkSymLink(pid, path, "cwd")) {
        logHolder(prefix, "cwd within", name, pid, path);
    } else if (checkSymLink(pid, path, "root")) {
        logHolder(prefix, "chroot within", name, pid, path);
    } else if (checkSymLink(pid, path, "exe")) {
        logHolder(prefix, "executable path within", name, pid, path);
    } else {
        return false;
    }
    return true;
}

void ProcessKiller::killProcessesWithOpenFiles(const char* path, int action) {
    SLOGE("killing process with open files in %s", path);
    pelk::UniqueDir proc(opendir("/proc"));
    if (!proc) {
        SLOGE("opendir failed (%s)", strerror(errno));
        return;
    }
    while (dirent* entry = readdir(proc.get())) {
        int pid = getPid(entry->d_name);
        if (pid == -1) continue;
        if (!reportHolder(pid, path, "")) continue;

        // Action 1 is logged as SIGHUP but sends SIGTERM; callers and log
        // readers rely on both exactly as they are.
        if (action == 1) {
            SLOGW("Sending SIGHUP to process %d", pid);
            kill(pid, SIGTERM);
        } else if (action == 2) {
            SLOGE("Sending SIGKILL to process %d", pid);
            kill(pid, SIGKILL);
        }
    }
}

void ProcessKiller::KillProcessesWithOpenFilesViaReverse(const char* path, int signal) {
    ScandirList list("/proc");
    if (list.count() <= 0) {
        SLOGE("scandir failed (%s)", strerror(errno));
        return;
    }
    // Names sort as text, so the last first means 99 before 100 and 1000
    // before 100.
    for (int i = list.count() - 1; i >= 0; --i) {
        int pid = getPid(list.name(i));
        if (pid == -1) continue;
        if (!reportHolder(pid, path, "!@")) continue;
        if (signal == 0) continue;

        // The number is sent as given: 1 is SIGHUP and 2 is SIGINT here.
        SLOGW("Sending %s to process %d", strsignal(signal), pid);
        kill(pid, signal);
        waitForDeath(pid);
    }
}
