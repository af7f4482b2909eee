// The marker file ".MetaEcfsFile" that says a directory is encrypted. Its
// path is built in the manager's mMetaPath; a directory whose marker path
// does not fit there is refused rather than cut, so that no other file of
// the directory is ever written or removed in its place.
#define LOG_TAG "pelkd"

#include <errno.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/UniqueHandle.h"
#include "manager/Pelk.h"

namespace {

const char kMetaFile[] = ".MetaEcfsFile";
// The whole content: 31 bytes, no newline, no terminator.
const char kMetaContent[] = "Cryptfs: Dont delete this file!";

bool buildMetaPath(char* out, size_t size, const char* dir) {
    int n = snprintf(out, size, "%s/%s", dir, kMetaFile);
    return n >= 0 && static_cast<size_t>(n) < size;
}

}  // namespace

int Pelk::createEncryptMetaData(const char* dir) {
    if (!buildMetaPath(mMetaPath, sizeof(mMetaPath), dir)) return -1;
    pelk::UniqueFile file(fopen(mMetaPath, "w+e"));
    if (!file) {
        unlink(mMetaPath);
        return -1;
    }
    fwrite(kMetaContent, 1, sizeof(kMetaContent) - 1, file.get());
    return 0;
}

int Pelk::deleteEncryptMetaData(const char* dir) {
    if (!buildMetaPath(mMetaPath, sizeof(mMetaPath), dir)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return unlink(mMetaPath);
}

int Pelk::checkEncryptMetaData(const char* dir) {
    // A path that does not fit cannot tell, and "cannot tell" answers 0.
    if (!buildMetaPath(mMetaPath, sizeof(mMetaPath), dir)) return 0;
    struct stat st;
    if (lstat(mMetaPath, &st) != 0 && errno == ENOENT) return -1;
    return 0;
}
