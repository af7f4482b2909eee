// Owner of one descriptor of the socket framework: closed when the owner goes
// away, on every path.
#pragma once

#include <unistd.h>

namespace sysutils {

class ScopedFd {
public:
    ScopedFd() = default;
    explicit ScopedFd(int fd) : mFd(fd) {}
    ~ScopedFd() { reset(); }
    ScopedFd(ScopedFd&& other) noexcept : mFd(other.release()) {}
    ScopedFd& operator=(ScopedFd&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    ScopedFd(const ScopedFd&) = delete;
    ScopedFd& operator=(const ScopedFd&) = delete;

    int get() const { return mFd; }
    bool ok() const { return mFd >= 0; }
    int release() {
        int fd = mFd;
        mFd = -1;
        return fd;
    }
    void reset(int fd = -1) {
        if (mFd >= 0) ::close(mFd);
        mFd = fd;
    }

private:
    int mFd = -1;
};

}  // namespace sysutils
