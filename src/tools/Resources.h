// Small owners for the resources the engine opens: every descriptor, directory
// stream, stdio stream and malloc'd block is released on every path out of
// the function that opened it. Key and password bytes are wiped with
// explicit_bzero, which the compiler may not drop as a dead store.
#pragma once

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <cstddef>

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
    int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

// Generic owner of a C handle with a release function.
template <typename T, int (*Release)(T*)>
class UniqueHandle {
public:
    UniqueHandle() = default;
    explicit UniqueHandle(T* handle) : handle_(handle) {}
    ~UniqueHandle() { reset(); }
    UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;

    T* get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }
    T* release() {
        T* h = handle_;
        handle_ = nullptr;
        return h;
    }
    void reset(T* handle = nullptr) {
        // The member is cleared before the release, so no path can see a
        // released handle.
        T* old = handle_;
        handle_ = handle;
        if (old) Release(old);
    }

private:
    T* handle_ = nullptr;
};

using UniqueDir = UniqueHandle<DIR, closedir>;
using UniqueFile = UniqueHandle<FILE, fclose>;

// A malloc'd block released with free().
template <typename T>
class HeapBlock {
public:
    HeapBlock() = default;
    explicit HeapBlock(T* p) : p_(p) {}
    ~HeapBlock() { free(p_); }
    HeapBlock(const HeapBlock&) = delete;
    HeapBlock& operator=(const HeapBlock&) = delete;
    T* get() const { return p_; }
    T* release() {
        T* p = p_;
        p_ = nullptr;
        return p;
    }
    void reset(T* p = nullptr) {
        free(p_);
        p_ = p;
    }

private:
    T* p_ = nullptr;
};

// Wipes secret bytes; explicit_bzero is never optimised away.
inline void wipe(void* p, size_t n) {
    if (p && n) explicit_bzero(p, n);
}

// A zero-filled fixed buffer for key or password bytes, wiped when it goes
// out of scope, whichever path leaves the function.
template <size_t N>
class SecretBuffer {
public:
    SecretBuffer() { memset(bytes_, 0, N); }
    ~SecretBuffer() { wipe(bytes_, N); }
    SecretBuffer(const SecretBuffer&) = delete;
    SecretBuffer& operator=(const SecretBuffer&) = delete;
    unsigned char* data() { return bytes_; }
    char* chars() { return reinterpret_cast<char*>(bytes_); }
    static constexpr size_t size() { return N; }

private:
    unsigned char bytes_[N];
};

// Wipes a region the caller does not own when the scope ends (for example a
// heap block handed back by a closed library).
class WipeOnExit {
public:
    WipeOnExit(void* p, size_t n) : p_(p), n_(n) {}
    ~WipeOnExit() { wipe(p_, n_); }
    WipeOnExit(const WipeOnExit&) = delete;
    WipeOnExit& operator=(const WipeOnExit&) = delete;

private:
    void* p_;
    size_t n_;
};

}  // namespace pelk
