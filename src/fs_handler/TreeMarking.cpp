// The two marking walks: a tree's top, its directories and its regular
// files are tagged for the sensitive-data feature; links and special files
// are left alone.
#define LOG_TAG "pelkd.fs_handler"

#include <dirent.h>
#include <fcntl.h>
#include <log/log.h>
#include <sys/stat.h>

#include <sdp/sdp.h>

#include "base/DirEntry.h"
#include "base/UniqueFd.h"
#include "base/UniqueHandle.h"
#include "fs_handler/InodePaths.h"
#include "fs_handler/TreeEntries.h"

namespace {

constexpr size_t kPathSize = 4096;

struct Marker {
    const char* name;  // the walk's name in its log lines
    int userId;
    bool sensitive;
    void mark(char* path) const {
        // The library's results are not looked at: a file it cannot tag stays untagged.
        if (sensitive)
            set_sensitive(userId, path);
        else
            set_protected(path);
    }
};

// Marks the entries of the open directory at path (already marked).
void markEntries(const Marker& marker, pelk::UniqueFd dirFd, const char* path) {
    pelk::UniqueDir dir(pelk::Fdopendir(std::move(dirFd)));
    if (!dir) return;
    while (dirent* entry = readdir(dir.get())) {
        if (pelk::isDotOrDotDot(entry->d_name)) continue;
        char entryPath[kPathSize];
        struct stat st;
        if (!fsentry::statEntry(dirfd(dir.get()), entry->d_name, path, entryPath, sizeof(entryPath), &st)) {
            SLOGE("%s :: can't stat %s", marker.name, entryPath);
            continue;
        }
        if (S_ISREG(st.st_mode)) {
            marker.mark(entryPath);
        } else if (S_ISDIR(st.st_mode)) {
            marker.mark(entryPath);
            markEntries(marker,
                        fsentry::openEntryDirectory(dirfd(dir.get()), entry->d_name, entryPath, sizeof(entryPath)),
                        entryPath);
        }
    }
}

bool markTree(const Marker& marker, char* path) {
    struct stat st;
    if (lstat(path, &st) != 0) {
        SLOGE("%s :: can't stat %s", marker.name, path);
        return false;
    }
    marker.mark(path);
    if (!S_ISDIR(st.st_mode)) return true;
    pelk::UniqueFd dirFd(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dirFd.ok()) return false;
    markEntries(marker, std::move(dirFd), path);
    return true;
}

}  // namespace

bool recursive_set_sensitive(int userId, char* path) {
    return markTree(Marker{"recursive_set_sensitive", userId, true}, path);
}

bool recursive_set_protected(int userId, char* path) {
    return markTree(Marker{"recursive_set_protected", userId, false}, path);
}
