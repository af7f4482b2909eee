// Building directory chains and rewriting a tree through the copy engine, so
// that every file passes once more through the encryption layer (encrypted
// on the way into an encrypted mount, decrypted on the way out).
#define LOG_TAG "pelkd"

#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fileops/CopyFileImpl.h>
#include <log/log.h>

#include "base/DirEntry.h"
#include "base/UniqueHandle.h"
#include "manager/Pelk.h"
#include "partition/DirectoryChain.h"

namespace {

constexpr size_t kPathSize = 4096;

// A source that cannot be looked at is passed over, not failed.
int passUnreachable(const char* src, int error) {
    SLOGI("source : <%s> is a dangling link: ", src);
    SLOGE("returned error <%d> errno %d %s", 0, error, strerror(error));
    SLOGI("Link pass\n");
    return 0;
}

// "%s/%s" of dir and name; false when it does not fit (never cut: a cut
// name could be another file).
bool joinPath(char* out, const char* dir, const char* name) {
    int n = snprintf(out, kPathSize, "%s/%s", dir, name);
    return n >= 0 && static_cast<size_t>(n) < kPathSize;
}

}  // namespace

int Pelk::makeDirectory(const char* path, unsigned int mode, unsigned int uid, unsigned int gid) {
    return pelk::makeDirectoryChain(path, mode, uid, gid, false, nullptr);
}

int Pelk::cryptInplace(const char* src, const char* dst, bool flag) {
    SLOGI("cryptInplace %s => %s", src, dst);
    struct stat st;
    if (lstat(src, &st) != 0) return passUnreachable(src, errno);

    if (S_ISDIR(st.st_mode)) {
        pelk::UniqueDir dir(opendir(src));
        if (!dir) return -1;
        makeDirectory(dst, st.st_mode & 07777, st.st_uid, st.st_gid);
        while (dirent* entry = readdir(dir.get())) {
            if (pelk::isDotOrDotDot(entry->d_name)) continue;
            char childSrc[kPathSize];
            char childDst[kPathSize];
            if (!joinPath(childSrc, src, entry->d_name) || !joinPath(childDst, dst, entry->d_name)) {
                passUnreachable(childSrc, ENAMETOOLONG);
                continue;
            }
            if (cryptInplace(childSrc, childDst, flag) < 0) {
                // The line has never named the entry; kept as it reads.
                SLOGE("Encryptfile reutnred error for nsrc <%s>", "(null)");
                return -1;
            }
        }
        return 0;
    }
    if (S_ISREG(st.st_mode)) {
        char tmp[kPathSize];
        int n = snprintf(tmp, sizeof(tmp), "%s.tmp", dst);
        if (n < 0 || static_cast<size_t>(n) >= sizeof(tmp)) {
            SLOGE("CopyFileImpl returned error <%d> errno %d %s", -ENAMETOOLONG, ENAMETOOLONG, strerror(ENAMETOOLONG));
            return -ENAMETOOLONG;
        }
        int rc = mCopyEngine->CopyFile(src, tmp, &st, st.st_uid, st.st_gid);
        if (rc != 0) {
            int error = errno;
            unlink(tmp);
            SLOGE("CopyFileImpl returned error <%d> errno %d %s", rc, error, strerror(error));
            return rc;
        }
        if (unlink(src) != 0) {
            SLOGE("Couldn't unlink %s : %s", src, strerror(errno));
            return -1;
        }
        if (rename(tmp, dst) != 0) {
            SLOGI("Couldn't rename %s to %s : %s\n", tmp, dst, strerror(errno));
            unlink(tmp);
            return -1;
        }
        SLOGI("File encrpyted/Decrypted : <%s>", dst);
        return 0;
    }
    if (S_ISLNK(st.st_mode)) {
        // Links are left where they are and not copied: their targets are
        // rewritten where they live.
        SLOGI("It is Symbolic Link, pass\n");
    }
    return 0;
}
