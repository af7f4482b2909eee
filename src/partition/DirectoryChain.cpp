#define LOG_TAG "pelkd"

#include "partition/DirectoryChain.h"
#include <log/log.h>

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "partition/Partition.h"
#include "partition/PartitionPathPrefixes.h"

namespace pelk {

int makeDirectoryChain(const char* path, unsigned int mode, unsigned int uid, unsigned int gid, bool stopAtPath,
                       const std::function<int(const char*)>& afterMake) {
    if (strlen(path) >= static_cast<size_t>(Partition::PATH_SIZE)) {
        SLOGE("the length of path is too long\n");
        return -1;
    }
    SLOGD("makeDirectory(%s)", path);

    return walkPathPrefixes(path, stopAtPath, [&](const char* prefix) {
        // Directories that are already there keep their owner and mode.
        struct stat st;
        if (stat(prefix, &st) == 0) return 0;
        if (mkdir(prefix, mode) != 0) {
            if (errno == EEXIST) return 0;
            SLOGE("mkdir failed for %s, %s\n", prefix, strerror(errno));
            return -1;
        }
        // Only a directory reached without a symbolic link gets the owner,
        // so a link planted in the chain cannot redirect the chown.
        if (Partition::isCanonicalPath(prefix) == 1) {
            if (chmod(prefix, mode) != 0) {
                SLOGE("Failed to chmod for %s :: Error\n", prefix);
                return -1;
            }
            if (chown(prefix, uid, gid) != 0) {
                SLOGE("Failed to chown for %s :: Error\n", prefix);
                return -1;
            }
        }
        return afterMake ? afterMake(prefix) : 0;
    });
}

}  // namespace pelk
