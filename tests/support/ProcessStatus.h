// What a running process holds, read from /proc as any observer could: its
// open descriptors and its resident memory.
#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <string>

#include "base/UniqueHandle.h"
#include "process/ProcFs.h"

namespace procstatus {

// Entries of /proc/<pid>/fd; -1 when the process cannot be read.
inline int openDescriptors(pid_t pid) {
    std::string path = "/proc/" + std::to_string(pid) + "/fd";
    pelk::UniqueDir dir(opendir(path.c_str()));
    if (!dir) return -1;
    int count = 0;
    while (readdir(dir.get()) != nullptr) ++count;
    return count - 2;  // "." and ".."
}

// VmRSS of /proc/<pid>/status in kB; -1 when there is none.
inline long residentKb(pid_t pid) { return pelk::readProcStatusNumber(pid, "VmRSS:"); }

}  // namespace procstatus
