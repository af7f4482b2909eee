#include "AtomicFile.h"

#include <errno.h>
#include <fcntl.h>
#include <libgen.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "tools/Resources.h"

namespace pelkhost {
namespace {

bool writeAll(int fd, const unsigned char* p, size_t len) {
    while (len > 0) {
        ssize_t n = write(fd, p, len);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

// The rename is durable only once the folder itself is synced.
void syncParentDir(const char* path) {
    std::string copy(path);
    pelk::UniqueFd dir(open(dirname(&copy[0]), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.ok()) fsync(dir.get());
}

}  // namespace

bool replaceFileAtomically(const char* path, const void* data, size_t len) {
    if (!path || (!data && len)) return false;
    std::string tmp = std::string(path) + ".XXXXXX";
    pelk::UniqueFd fd(mkostemp(&tmp[0], O_CLOEXEC));  // created with mode 0600
    if (!fd.ok()) return false;
    bool ok = writeAll(fd.get(), static_cast<const unsigned char*>(data), len) && fsync(fd.get()) == 0;
    fd.reset();
    if (ok && rename(tmp.c_str(), path) == 0) {
        syncParentDir(path);
        return true;
    }
    unlink(tmp.c_str());
    return false;
}

long readSmallFile(const char* path, unsigned char* buf, size_t cap) {
    pelk::UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) return -1;
    size_t done = 0;
    for (;;) {
        if (done == cap) {
            // One byte more means the file is not what we expect.
            unsigned char extra;
            ssize_t n = TEMP_FAILURE_RETRY(read(fd.get(), &extra, 1));
            return n == 0 ? static_cast<long>(done) : -1;
        }
        ssize_t n = read(fd.get(), buf + done, cap - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        if (n == 0) return static_cast<long>(done);
        done += static_cast<size_t>(n);
    }
}

}  // namespace pelkhost
