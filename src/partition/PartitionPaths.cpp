// Making directory chains with the partition's owner and mode, and the small
// path questions the storage operations ask.
#define LOG_TAG "pelkd"

#include <crypt/crypt.h>
#include <limits.h>
#include <log/log.h>
#include <persona/persona.h>
#include <selinux/android.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "partition/DirectoryChain.h"
#include "partition/Partition.h"
#include "partition/PartitionFormat.h"
#include "partition/PartitionPathPrefixes.h"

namespace {

constexpr unsigned int kRestoreconFlags = 0x90;
const char kSdcardRoot[] = "/mnt/runtime/default/emulated";

bool exists(const char* path) {
    struct stat st;
    return stat(path, &st) == 0;
}

}  // namespace

int Partition::makeDirectory(const char* path, unsigned int mode, unsigned int uid, unsigned int gid) {
    return pelk::makeDirectoryChain(path, mode, uid, gid, true, [this](const char* prefix) {
        if (isZanthUser(mUserId) && selinux_android_restorecon_internal(prefix, mUserId, kRestoreconFlags) < 0) {
            SLOGE("Error makeDirectory SELinux restorecon path(%s) containerID(%d)\n", prefix, mUserId);
            return -1;
        }
        return 0;
    });
}

int Partition::makeRelativeDirectory(const char* relativePath, unsigned int mode) {
    // Only legacy-encryption containers keep their own directories below
    // the mount path; everyone else has nothing to do here.
    if (!(isZanthUser(mUserId) && isLegacyEncryption(mUserId))) return 1;

    char full[PATH_SIZE];
    // The relative path brings its own leading slash. An over-long join is
    // cut; an empty mount path gives an empty join, made nowhere.
    (void)pelk::formatBelow(full, mMntPath, "%s", relativePath);
    SLOGD("makeRelativeDirectory: %s", full);

    return pelk::walkPathPrefixes(full, false, [&](const char* prefix) {
        if (exists(prefix)) return 0;
        if (mkdir(prefix, mode) != 0) {
            const int err = errno;
            if (err == EEXIST) return 0;
            SLOGE("mkdir failed for %s, %s\n", prefix, strerror(err));
            return -err;
        }
        if (selinux_android_restorecon_internal(prefix, mUserId, kRestoreconFlags) < 0) {
            SLOGE("Error makeDirectory SELinux restorecon path(%s) containerID(%d)\n", prefix, mUserId);
            return -1;
        }
        return 0;
    });
}

int Partition::extractDirectory(const char* path, char* out) {
    const size_t pathLen = strlen(path);
    if (pathLen >= static_cast<size_t>(PATH_SIZE)) {
        SLOGE("the length of path is too long\n");
        return -1;
    }
    char copy[PATH_SIZE];
    memcpy(copy, path, pathLen + 1);

    out[0] = '\0';
    size_t outLen = 0;
    char* save = nullptr;
    char* previous = nullptr;
    int index = 0;
    // Each component is appended once the next one shows it was not the last.
    for (char* component = strtok_r(copy, "/", &save); component; component = strtok_r(nullptr, "/", &save)) {
        printf("[%d]%s\n", index++, component);
        if (previous && outLen < static_cast<size_t>(PATH_SIZE)) {
            int n = snprintf(out + outLen, PATH_SIZE - outLen, "/%s", previous);
            if (n > 0) outLen += static_cast<size_t>(n);
        }
        previous = component;
    }
    return 0;
}

int Partition::isCanonicalPath(const char* path) {
    char src[PATH_SIZE];
    snprintf(src, sizeof(src), "%s", path);
    size_t len = strlen(src);
    if (len > 1 && src[len - 1] == '/') src[len - 1] = '\0';
    SLOGD("Input srcpath - src: %s\n", path);
    SLOGD("Resolved srcpath - srcPath: %s\n", src);

    char resolved[PATH_MAX];
    const bool ok = realpath(src, resolved) != nullptr;
    if (!ok) resolved[0] = '\0';
    SLOGD("real path - rtStr: %s\n", resolved);
    if (!ok || strcmp(src, resolved) != 0) {
        SLOGD("%s is absolute path Skipped..\n", src);
        return -1;
    }
    SLOGD("This is canonical path.\n");
    return 1;
}

bool Partition::isSdcardPath(const char* path) {
    const size_t n = sizeof(kSdcardRoot) - 1;
    return strlen(path) >= n && strncmp(path, kSdcardRoot, n) == 0;
}
