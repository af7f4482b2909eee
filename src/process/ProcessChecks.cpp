// The per-process checks: does a process hold something under a path through
// an open descriptor, a mapped file, or its cwd, root or exe link?
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "process/ProcessKiller.h"
#include "base/UniqueHandle.h"
#include "base/DirEntry.h"
#include "base/Strings.h"

namespace {

constexpr size_t kPathSize = 4096;
// Map lines are read in pieces of at most this many bytes less one.
constexpr int kMapLineSize = 4196;
// /proc/<pid>/maps is produced a page at a time; a large stdio buffer makes
// one read return many pages' worth of lines.
constexpr size_t kMapReadBuffer = 64 * 1024;

void copyFound(char* found, size_t size, const char* text) {
    if (found) pelk::copyWord(found, size, text);
}


}  // namespace

bool ProcessKiller::checkFileDescriptorSymLinks(int pid, const char* path, char* found, size_t size) {
    char dirPath[64];
    int dirLen = snprintf(dirPath, sizeof(dirPath), "/proc/%d/fd", pid);
    pelk::UniqueDir dir(opendir(dirPath));
    if (!dir) return false;
    const int dirFd = dirfd(dir.get());

    char target[kPathSize];
    while (dirent* entry = readdir(dir.get())) {
        const char* name = entry->d_name;
        if (pelk::isDotOrDotDot(name)) continue;
        // "<dir>/<name>" and its terminator must fit a path buffer.
        if (static_cast<size_t>(dirLen) + 1 + strlen(name) >= kPathSize) continue;
        if (pelk::entryType(dirFd, entry) != DT_LNK) continue;
        ssize_t len = readlinkat(dirFd, name, target, sizeof(target) - 1);
        if (len < 0) continue;
        target[len] = '\0';
        if (pathMatchesMountPoint(target, path)) {
            copyFound(found, size, target);
            return true;
        }
    }
    return false;
}

bool ProcessKiller::checkFileDescriptorSymLinks(int pid, const char* path) {
    return checkFileDescriptorSymLinks(pid, path, nullptr, 0);
}

bool ProcessKiller::checkFileMaps(int pid, const char* path, char* found, size_t size) {
    char mapsPath[64];
    snprintf(mapsPath, sizeof(mapsPath), "/proc/%d/maps", pid);
    // Declared before the stream so that the stream is closed first.
    pelk::HeapBlock<char> buffer(static_cast<char*>(malloc(kMapReadBuffer)));
    pelk::UniqueFile maps(fopen(mapsPath, "re"));
    if (!maps) return false;
    if (buffer.get()) setvbuf(maps.get(), buffer.get(), _IOFBF, kMapReadBuffer);

    char line[kMapLineSize];
    while (fgets(line, sizeof(line), maps.get())) {
        // The file name is the text from the first slash to the end of the
        // line, newline included.
        const char* mapped = strchr(line, '/');
        if (mapped && pathMatchesMountPoint(mapped, path)) {
            copyFound(found, size, mapped);
            return true;
        }
    }
    return false;
}

bool ProcessKiller::checkFileMaps(int pid, const char* path) { return checkFileMaps(pid, path, nullptr, 0); }

bool ProcessKiller::checkSymLink(int pid, const char* path, const char* name) {
    char linkPath[kPathSize];
    snprintf(linkPath, sizeof(linkPath), "/proc/%d/%s", pid, name);
    char target[kPathSize];
    return readSymLink(linkPath, target, sizeof(target)) && pathMatchesMountPoint(target, path);
}
