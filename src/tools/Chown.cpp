// chown with an owner word, and the recursive walk behind "chown -R".
#define LOG_TAG "pelkd"

#include "tools/Chown.h"

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <log/log.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "base/DirEntry.h"
#include "base/Strings.h"
#include "base/UniqueFd.h"
#include "base/UniqueHandle.h"

namespace {

constexpr size_t kOwnerWordSize = 32;
constexpr size_t kPathSize = 4096;

// The id of a known name (knownId, -1 when the name is not known), else the
// number strtoul reads with base 0 (trailing text ignored); false when no
// digit could be read.
bool resolveId(const char* name, long knownId, unsigned long* id) {
    if (knownId >= 0) {
        *id = static_cast<unsigned long>(knownId);
        return true;
    }
    char* end = nullptr;
    *id = strtoul(name, &end, 0);
    return end != name;
}

bool lookUpUser(const char* name, uid_t* uid) {
    const struct passwd* pw = getpwnam(name);
    unsigned long id;
    if (!resolveId(name, pw ? static_cast<long>(pw->pw_uid) : -1, &id)) return false;
    *uid = static_cast<uid_t>(id);
    return true;
}

bool lookUpGroup(const char* name, gid_t* gid) {
    const struct group* gr = getgrnam(name);
    unsigned long id;
    if (!resolveId(name, gr ? static_cast<long>(gr->gr_gid) : -1, &id)) return false;
    *gid = static_cast<gid_t>(id);
    return true;
}

// Cuts the owner word at the first ":" or, when it has none, at the first ".";
// answers the group part or null.
char* splitGroup(char* owner) {
    char* separator = strchr(owner, ':');
    if (!separator) separator = strchr(owner, '.');
    if (!separator) return nullptr;
    *separator = '\0';
    return separator + 1;
}

// A path that is gone by the time it is looked at is not a failure.
int lstatFailed(const char* path) {
    int error = errno;  // the log line must not decide the result
    ALOGD("failed to lstat %s", path);
    return error == ENOENT ? 0 : -1;
}

// The walk below a directory works relative to the open directory: no path
// is looked up again from the root, and a directory swapped for a link
// between the look and the open is refused rather than followed. The path
// is still formed, cut at kPathSize, for the log line of every entry.
class ChownWalk {
public:
    ChownWalk(const char* root, uid_t uid, gid_t gid) : uid_(uid), gid_(gid) {
        length_ = std::min(strlen(root), sizeof(path_) - 1);
        memcpy(path_, root, length_);
        path_[length_] = '\0';
    }

    // Children first, then the directory `name` of parentFd itself.
    int directory(int parentFd, const char* name) {
        pelk::UniqueFd fd(openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!fd.ok()) return -1;
        pelk::UniqueDir dir(pelk::Fdopendir(std::move(fd)));
        if (!dir) return -1;
        while (const struct dirent* entry = readdir(dir.get())) {
            if (pelk::isDotOrDotDot(entry->d_name)) continue;
            size_t saved = enter(entry->d_name);
            int result = child(dirfd(dir.get()), entry);
            leave(saved);
            // A failed child hands its errno up as a positive number; kept.
            if (result < 0) return errno;
        }
        if (closedir(dir.release()) != 0) return -1;
        return fchownat(parentFd, name, uid_, gid_, 0);
    }

private:
    int child(int dirFd, const struct dirent* entry) {
        ALOGD("chown_recursive %s", path_);
        switch (pelk::entryType(dirFd, entry)) {
            case DT_UNKNOWN: return lstatFailed(path_);
            case DT_LNK: ALOGE("%s :: skip link file", "chown_recursive"); return 0;
            case DT_DIR: return directory(dirFd, entry->d_name);
            default: return fchownat(dirFd, entry->d_name, uid_, gid_, 0);
        }
    }

    // Appends "/name" (cut to the buffer) and answers the length to go back to.
    size_t enter(const char* name) {
        size_t saved = length_;
        int added = snprintf(path_ + length_, sizeof(path_) - length_, "/%s", name);
        length_ = std::min(length_ + static_cast<size_t>(added), sizeof(path_) - 1);
        return saved;
    }
    void leave(size_t saved) {
        length_ = saved;
        path_[length_] = '\0';
    }

    uid_t uid_;
    gid_t gid_;
    char path_[kPathSize];
    size_t length_ = 0;
};

}  // namespace

int chown_recursive(const char* path, unsigned int uid, unsigned int gid) {
    ALOGD("chown_recursive %s", path);
    struct stat st;
    if (lstat(path, &st) != 0) return lstatFailed(path);
    if (S_ISLNK(st.st_mode)) {
        ALOGE("%s :: skip link file", "chown_recursive");
        return 0;
    }
    if (!S_ISDIR(st.st_mode)) return chown(path, uid, gid);
    ChownWalk walk(path, uid, gid);
    return walk.directory(AT_FDCWD, path);
}

int chown_migration(char* path, unsigned int uid, unsigned int gid) { return chown_recursive(path, uid, gid); }

int chown_pelkd(int argc, char** argv, int recursive) {
    if (argc <= 2) {
        ALOGE("Usage: chown <USER>[:GROUP] <FILE1> [FILE2] ...\n");
        return 10;
    }
    char owner[kOwnerWordSize];
    pelk::copyWord(owner, sizeof(owner), argv[1]);
    ALOGE("chown user=%s", owner);

    char* group = splitGroup(owner);
    uid_t uid;
    if (!lookUpUser(owner, &uid)) {
        ALOGE("No such user '%s'\n", owner);
        return -EINVAL;
    }
    gid_t gid = static_cast<gid_t>(-1);
    if (group && !lookUpGroup(group, &gid)) {
        ALOGE("No such group '%s'\n", group);
        return -EINVAL;
    }

    if (recursive) return chown_recursive(argv[2], uid, gid);
    for (int i = 2; i < argc; ++i) {
        if (chown(argv[i], uid, gid) != 0) {
            ALOGE("Unable to chown %s: %s\n", argv[i], strerror(errno));
            return -EINVAL;
        }
    }
    return 0;
}
