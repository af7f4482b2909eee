// chown with a user spec, and the recursive walk behind "chown -R".
#define LOG_TAG "pelkd"

#include "tools/Chown.h"

#include <errno.h>
#include <grp.h>
#include <log/log.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/DirEntry.h"
#include "base/Strings.h"
#include "base/UniqueHandle.h"

namespace {

constexpr size_t kUserSpecSize = 32;
constexpr size_t kPathSize = 4096;

// A number as strtoul reads it with base 0 (trailing text ignored); false
// when no digit could be read.
bool readId(const char* text, unsigned long* id) {
    char* end = nullptr;
    *id = strtoul(text, &end, 0);
    return end != text;
}

bool lookUpUser(const char* name, uid_t* uid) {
    if (const struct passwd* pw = getpwnam(name)) {
        *uid = pw->pw_uid;
        return true;
    }
    unsigned long id;
    if (!readId(name, &id)) return false;
    *uid = static_cast<uid_t>(id);
    return true;
}

bool lookUpGroup(const char* name, gid_t* gid) {
    if (const struct group* gr = getgrnam(name)) {
        *gid = gr->gr_gid;
        return true;
    }
    unsigned long id;
    if (!readId(name, &id)) return false;
    *gid = static_cast<gid_t>(id);
    return true;
}

// Cuts the spec at the first ":" or, when it has none, at the first ".";
// answers the group part or null.
char* splitGroup(char* spec) {
    char* separator = strchr(spec, ':');
    if (!separator) separator = strchr(spec, '.');
    if (!separator) return nullptr;
    *separator = '\0';
    return separator + 1;
}

int chownDirectory(const char* path, uid_t uid, gid_t gid) {
    pelk::UniqueDir dir(opendir(path));
    if (!dir) return -1;
    char child[kPathSize];
    while (const struct dirent* entry = readdir(dir.get())) {
        if (pelk::isDotOrDotDot(entry->d_name)) continue;
        snprintf(child, sizeof(child), "%s/%s", path, entry->d_name);
        // A failed child hands its errno up as a positive number; kept.
        if (chown_recursive(child, uid, gid) < 0) return errno;
    }
    if (closedir(dir.release()) != 0) return -1;
    return chown(path, uid, gid);
}

}  // namespace

int chown_recursive(const char* path, unsigned int uid, unsigned int gid) {
    ALOGD("chown_recursive %s", path);
    struct stat st;
    if (lstat(path, &st) != 0) {
        ALOGD("failed to lstat %s", path);
        return errno == ENOENT ? 0 : -1;
    }
    if (S_ISLNK(st.st_mode)) {
        ALOGE("%s :: skip link file", "chown_recursive");
        return 0;
    }
    if (!S_ISDIR(st.st_mode)) return chown(path, uid, gid);
    return chownDirectory(path, uid, gid);
}

int chown_migration(char* path, unsigned int uid, unsigned int gid) { return chown_recursive(path, uid, gid); }

int chown_pelkd(int argc, char** argv, int recursive) {
    if (argc <= 2) {
        ALOGE("Usage: chown <USER>[:GROUP] <FILE1> [FILE2] ...\n");
        return 10;
    }
    char spec[kUserSpecSize];
    pelk::copyWord(spec, sizeof(spec), argv[1]);
    ALOGE("chown user=%s", spec);

    char* group = splitGroup(spec);
    uid_t uid;
    if (!lookUpUser(spec, &uid)) {
        ALOGE("No such user '%s'\n", spec);
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
