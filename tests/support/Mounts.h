// Real mounts inside the device for the mount-state questions: tmpfs on a
// storage area's mount path, and processes of their own mount namespace
// whose "/storage" shows a chosen root.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <persona/persona.h>

#include "base/UniqueFd.h"
#include "partition/Partition.h"
#include "support/Files.h"

namespace mounts {

using testfs::makeDirs;

inline bool mountTmpfs(const std::string& path) {
    return makeDirs(path) && mount("tmpfs", path.c_str(), "tmpfs", 0, nullptr) == 0;
}

inline std::string areaPath(int userId, int type) {
    Partition area(userId, type, nullptr, false);
    return area.mMntPath;
}

// How many of a user's areas of a type list are mounted right now.
template <size_t N>
inline int mountedCount(int userId, const int32_t (&types)[N]) {
    int n = 0;
    for (int32_t type : types) n += isMountedPath(areaPath(userId, type).c_str()) ? 1 : 0;
    return n;
}

template <size_t N>
inline bool mountAreas(int userId, const int32_t (&types)[N]) {
    for (int32_t type : types) {
        if (!mountTmpfs(areaPath(userId, type))) return false;
    }
    return true;
}

// A process in a mount namespace of its own whose "/storage" is a bind of
// a directory that its filesystem calls `root` (e.g. "/runtime/read"); an
// empty root leaves "/storage" unmounted. Killed when it goes out of scope.
class StorageViewProcess {
public:
    explicit StorageViewProcess(const std::string& root) {
        int ready[2];
        if (pipe2(ready, O_CLOEXEC) != 0) return;
        pelk::UniqueFd readEnd(ready[0]);
        pelk::UniqueFd writeEnd(ready[1]);
        mPid = fork();
        if (mPid == 0) {
            readEnd.reset();
            if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) _exit(1);
            if (!root.empty()) {
                if (!mountTmpfs("/mnt/viewfs")) _exit(1);
                std::string dir = "/mnt/viewfs" + root;
                if (!makeDirs(dir) || mount(dir.c_str(), "/storage", nullptr, MS_BIND, nullptr) != 0) _exit(1);
            }
            char byte = 1;
            if (write(writeEnd.get(), &byte, 1) != 1) _exit(1);
            for (;;) pause();
        }
        writeEnd.reset();
        char byte = 0;
        mReady = mPid > 0 && read(readEnd.get(), &byte, 1) == 1;
    }
    ~StorageViewProcess() {
        if (mPid > 0) {
            kill(mPid, SIGKILL);
            waitpid(mPid, nullptr, 0);
        }
    }
    StorageViewProcess(const StorageViewProcess&) = delete;
    StorageViewProcess& operator=(const StorageViewProcess&) = delete;

    bool ready() const { return mReady; }
    std::string pidText() const { return std::to_string(mPid); }

private:
    pid_t mPid = -1;
    bool mReady = false;
};

}  // namespace mounts
