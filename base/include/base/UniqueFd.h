// Owner of one file descriptor, closed on every path out of its scope.
//
// Shaped so the wrong use does not compile: the result of release() must be
// used (a dropped result is a leak), there is no operator! (an "if (!fd)"
// would test the number, not whether it is open: use ok()), and reset()
// keeps errno, so a failure's errno survives the clean-up that follows it.
#pragma once

#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <utility>  // std::move, for the hand-overs below

namespace pelk {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return fd_; }
    bool ok() const { return fd_ >= 0; }
    bool operator!() const = delete;

    [[nodiscard]] int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1) {
        int saved = errno;
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
        errno = saved;
    }

private:
    int fd_ = -1;
};

// Hands an owned descriptor to a directory stream. On success the stream owns
// it; on failure it is closed here and nullptr comes back with fdopendir's
// errno. Either way the caller's owner is empty afterwards.
inline DIR* Fdopendir(UniqueFd&& fd) {
    int raw = fd.release();
    DIR* dir = fdopendir(raw);
    if (dir == nullptr) {
        int saved = errno;
        ::close(raw);
        errno = saved;
    }
    return dir;
}

// The same hand-over to a stdio stream.
inline FILE* Fdopen(UniqueFd&& fd, const char* mode) {
    int raw = fd.release();
    FILE* file = fdopen(raw, mode);
    if (file == nullptr) {
        int saved = errno;
        ::close(raw);
        errno = saved;
    }
    return file;
}

}  // namespace pelk
