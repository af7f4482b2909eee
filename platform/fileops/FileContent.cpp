// File bytes moved by copy_file_range, falling back to pread and pwrite.
#include "FileContent.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace fileops {

int setOwnerAndMode(int fd, uid_t uid, gid_t gid, mode_t mode) {
    if (fchown(fd, uid, gid) != 0) return -errno;
    return fchmod(fd, mode) == 0 ? 0 : -errno;
}

namespace {

constexpr size_t kKernelStep = 1u << 30;
constexpr size_t kBufferSize = 1u << 16;

// copy_file_range refuses pairs of files it cannot handle with these; the
// buffer copy serves them.
bool needsBufferCopy(int error) { return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP; }

ssize_t bufferCopy(int from, off_t in, int to, off_t out, size_t want) {
    char buf[kBufferSize];
    ssize_t n = pread(from, buf, std::min(want, sizeof(buf)), in);
    if (n <= 0) return n;
    for (ssize_t done = 0; done < n;) {
        ssize_t w = pwrite(to, buf + done, static_cast<size_t>(n - done), out + done);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return -1;
        done += w;
    }
    return n;
}

}  // namespace

int copyBytes(int from, int to, off_t offset, long long length) {
    off_t in = offset;
    off_t out = offset;
    bool inKernel = true;
    while (length != 0) {
        size_t want = length < 0 ? kKernelStep : static_cast<size_t>(std::min<long long>(length, kKernelStep));
        ssize_t n = -1;
        if (inKernel) {
            n = copy_file_range(from, &in, to, &out, want, 0);
            if (n < 0 && needsBufferCopy(errno)) {
                inKernel = false;
                continue;
            }
        } else {
            n = bufferCopy(from, in, to, out, want);
            if (n > 0) {
                in += n;
                out += n;
            }
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -errno;
        if (n == 0) return length < 0 ? 0 : -EIO;
        if (length > 0) length -= n;
    }
    return 0;
}

}  // namespace fileops
