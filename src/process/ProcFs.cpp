// The readers of one process's /proc entry.
#include "process/ProcFs.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

#include "base/DirEntry.h"
#include "base/UniqueFd.h"
#include "base/UniqueHandle.h"

namespace pelk {
namespace {

constexpr size_t kPathSize = 4096;
// Map lines are read in pieces of at most this many bytes less one.
constexpr int kMapLineSize = 4196;
// /proc/<pid>/maps is produced a page at a time; a large stdio buffer makes
// one read return many pages' worth of lines.
constexpr size_t kMapReadBuffer = 64 * 1024;

}  // namespace

bool procPath(char* out, size_t size, int pid, const char* name) {
    int n = (name && name[0]) ? snprintf(out, size, "/proc/%d/%s", pid, name) : snprintf(out, size, "/proc/%d", pid);
    return n >= 0 && static_cast<size_t>(n) < size;
}

int readProcCmdline(int pid, char* out, size_t size) {
    if (size == 0) return -1;
    memset(out, 0, size);
    char path[50] = {0};
    procPath(path, sizeof(path), pid, "cmdline");
    UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) return -1;
    ssize_t n = TEMP_FAILURE_RETRY(read(fd.get(), out, size - 1));
    return n < 0 ? -1 : static_cast<int>(n);
}

int readProcStatusNumber(int pid, const char* key) {
    char path[50] = {0};
    procPath(path, sizeof(path), pid, "status");
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

int readProcOwnerUid(int pid, const char** failedCall) {
    char path[64];
    procPath(path, sizeof(path), pid, nullptr);
    UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    struct stat st;
    const char* failed = !fd.ok() ? "open" : fstat(fd.get(), &st) != 0 ? "fstat" : nullptr;
    if (failedCall) *failedCall = failed;
    return failed ? -1 : static_cast<int>(st.st_uid);
}

int pidOfProcName(const char* name) {
    long long value = 0;
    for (const char* c = name; *c; ++c) {
        if (*c < '0' || *c > '9') return -1;
        value = value * 10 + (*c - '0');
        // No process has a pid this large; treat it as a name that is no pid.
        if (value > INT_MAX) return -1;
    }
    return static_cast<int>(value);
}

bool forEachFdTarget(int pid, const std::function<bool(int fd, const char* target)>& visit) {
    char dirPath[64];
    procPath(dirPath, sizeof(dirPath), pid, "fd");
    const size_t dirLen = strlen(dirPath);
    UniqueDir dir(opendir(dirPath));
    if (!dir) return false;
    const int dirFd = dirfd(dir.get());

    char target[kPathSize];
    while (dirent* entry = readdir(dir.get())) {
        const char* name = entry->d_name;
        if (isDotOrDotDot(name)) continue;
        // "<dir>/<name>" and its terminator must fit a path buffer.
        if (dirLen + 1 + strlen(name) >= kPathSize) continue;
        if (entryType(dirFd, entry) != DT_LNK) continue;
        ssize_t len = readlinkat(dirFd, name, target, sizeof(target) - 1);
        if (len < 0) continue;
        target[len] = '\0';
        if (visit(atoi(name), target)) return true;
    }
    return false;
}

bool forEachMapLine(int pid, const std::function<bool(const char* line)>& visit) {
    char mapsPath[64];
    procPath(mapsPath, sizeof(mapsPath), pid, "maps");
    // Declared before the stream so that the stream is closed first.
    HeapBlock<char> buffer(static_cast<char*>(malloc(kMapReadBuffer)));
    UniqueFile maps(fopen(mapsPath, "re"));
    if (!maps) return false;
    if (buffer.get()) setvbuf(maps.get(), buffer.get(), _IOFBF, kMapReadBuffer);

    char line[kMapLineSize];
    while (fgets(line, sizeof(line), maps.get())) {
        if (visit(line)) return true;
    }
    return false;
}

}  // namespace pelk
