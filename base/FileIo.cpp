// Whole reads and writes over descriptors.
#include "base/FileIo.h"

#include <errno.h>
#include <unistd.h>

namespace pelk {

bool writeFully(int fd, const void* data, size_t n) {
    const char* p = static_cast<const char*>(data);
    while (n > 0) {
        ssize_t w = write(fd, p, n);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        p += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

ssize_t readFully(int fd, void* data, size_t n) {
    char* p = static_cast<char*>(data);
    size_t got = 0;
    while (got < n) {
        ssize_t r = read(fd, p + got, n - got);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) return got > 0 ? static_cast<ssize_t>(got) : -1;
        if (r == 0) break;
        got += static_cast<size_t>(r);
    }
    return static_cast<ssize_t>(got);
}

bool readAll(int fd, std::string* out) {
    char buf[4096];
    for (;;) {
        ssize_t r = read(fd, buf, sizeof(buf));
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) return false;
        if (r == 0) return true;
        out->append(buf, static_cast<size_t>(r));
    }
}

}  // namespace pelk
