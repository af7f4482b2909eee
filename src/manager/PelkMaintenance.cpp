// Small maintenance operations the commands call: package directory sync,
// directories made on demand under a container's emulated storage, removal
// of one file, and the hand-over of DLP commands.
#define LOG_TAG "pelkd"

#include <ctype.h>
#include <log/log.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <crypt/crypt.h>
#include <dlp/dlp.h>
#include <persona/persona.h>

#include "manager/Pelk.h"
#include "partition/Partition.h"

namespace {

const char kEmulatedPrefix[] = "/storage/emulated/";
const size_t kEmulatedPrefixLen = sizeof(kEmulatedPrefix) - 1;  // 18
const size_t kUserDigitsSize = 10;

}  // namespace

int Pelk::syncPkgDir(int userA, int userB) {
    // Always answers -22: the sync accepts only a CE data source, and this
    // fixed type is DE data. Callers rely on the answer as it is.
    return syncPkgDirInternal(userA, userB, PARTITION_DE_DATA);
}

int Pelk::syncPkgDirInternal(int userA, int userB, int type) {
    Partition target(userB, type, nullptr, false);
    Partition source(userA, type, nullptr, false);
    return target.syncPkgDir(&source);
}

int Pelk::zanthfs_check_and_mkdirs(const char* path, unsigned int mode) {
    if (!path || strlen(path) <= kEmulatedPrefixLen) {
        SLOGD("Not Zanth related path!\n");
        return 1;
    }
    if (strncmp(path, kEmulatedPrefix, kEmulatedPrefixLen) != 0) {
        SLOGD("Not Zanth related path!!\n");
        return 1;
    }
    char digits[kUserDigitsSize] = {0};
    size_t count = 0;
    const char* rest = path + kEmulatedPrefixLen;
    while (count < kUserDigitsSize - 1 && isdigit(static_cast<unsigned char>(*rest))) digits[count++] = *rest++;
    if (*rest == '/') {
        // "seperator" is the word the log readers search for.
        SLOGD("Terminated seperator: %zu\n", count);
    } else {
        SLOGD("Terminated by non-digit value");
    }
    if (count == 0) return 1;

    int userId = atoi(digits);
    if (!isZanthUser(userId) || !isLegacyEncryption(userId)) return 1;
    Partition view(userId, PARTITION_SDCARDFS_DEFAULT, nullptr, false);
    int rc = view.makeRelativeDirectory(rest, mode);
    SLOGD("zanthfs_check_and_mkdirs::creation tried::%d", rc);
    return rc;
}

int Pelk::deleteFile(const char* path, int) {
    // Every line here is at ERROR on purpose.
    SLOGE("deleteFile %s", path);
    struct stat st;
    int rc = stat(path, &st);
    if (rc != 0) return rc;
    if (S_ISDIR(st.st_mode)) {
        rc = rmdir(path);  // only a directory without entries goes
    } else if (S_ISREG(st.st_mode)) {
        rc = remove(path);
    } else {
        SLOGE("deleteFile path is not a regular file or directory");
        return -1;
    }
    SLOGE("deleteFile st_mode=%d rc=%d", static_cast<int>(st.st_mode), rc);
    return rc;
}

int Pelk::forwardDLPCommand(int argc, char** argv) {
    int rc = handleDLPCommands(argc, argv);
    if (rc != 0) {
        SLOGE("handleDLPCommands() failed Error: %d", rc);
        return -1;
    }
    // At ERROR too, as the DLP readers expect.
    SLOGE("handleDLPCommands() success");
    return 0;
}
