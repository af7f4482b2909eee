// The per-process checks: does a process hold something under a path through
// an open descriptor, a mapped file, or its cwd, root or exe link?
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/Strings.h"
#include "process/ProcFs.h"
#include "process/ProcessKiller.h"

namespace {

constexpr size_t kPathSize = 4096;

void copyFound(char* found, size_t size, const char* text) {
    if (found) pelk::copyWord(found, size, text);
}
}  // namespace

bool ProcessKiller::checkFileDescriptorSymLinks(int pid, const char* path, char* found, size_t size) {
    return pelk::forEachFdTarget(pid, [&](int, const char* target) {
        if (!pathMatchesMountPoint(target, path)) return false;
        copyFound(found, size, target);
        return true;
    });
}

bool ProcessKiller::checkFileDescriptorSymLinks(int pid, const char* path) {
    return checkFileDescriptorSymLinks(pid, path, nullptr, 0);
}

bool ProcessKiller::checkFileMaps(int pid, const char* path, char* found, size_t size) {
    return pelk::forEachMapLine(pid, [&](const char* line) {
        // The file name is the text from the first slash to the end of the
        // line, newline included.
        const char* mapped = strchr(line, '/');
        if (!mapped || !pathMatchesMountPoint(mapped, path)) return false;
        copyFound(found, size, mapped);
        return true;
    });
}

bool ProcessKiller::checkFileMaps(int pid, const char* path) { return checkFileMaps(pid, path, nullptr, 0); }

bool ProcessKiller::checkSymLink(int pid, const char* path, const char* name) {
    char linkPath[kPathSize];
    pelk::procPath(linkPath, sizeof(linkPath), pid, name);
    char target[kPathSize];
    return readSymLink(linkPath, target, sizeof(target)) && pathMatchesMountPoint(target, path);
}
