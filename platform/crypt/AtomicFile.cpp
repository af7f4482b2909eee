#include "AtomicFile.h"

#include <errno.h>
#include <fcntl.h>
#include <libgen.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "base/FileIo.h"
#include "base/UniqueFd.h"

namespace pelkhost {
namespace {

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
    bool ok = pelk::writeFully(fd.get(), data, len) && fsync(fd.get()) == 0;
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
    ssize_t done = pelk::readFully(fd.get(), buf, cap);
    if (done < 0 || static_cast<size_t>(done) < cap) return done;
    // One byte more means the file is not what we expect.
    unsigned char extra;
    return TEMP_FAILURE_RETRY(read(fd.get(), &extra, 1)) == 0 ? static_cast<long>(done) : -1;
}

}  // namespace pelkhost
