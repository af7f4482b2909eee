// Owners of C handles with a release function: directory and stdio streams,
// and malloc'd blocks. The handle is released on every path out of scope.
#pragma once

#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

namespace pelk {

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
    [[nodiscard]] T* release() {
        T* h = handle_;
        handle_ = nullptr;
        return h;
    }
    // The member is cleared before the release, so no path can see a
    // released handle; errno survives the release.
    void reset(T* handle = nullptr) {
        T* old = handle_;
        handle_ = handle;
        if (old) {
            int saved = errno;
            Release(old);
            errno = saved;
        }
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
    [[nodiscard]] T* release() {
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

}  // namespace pelk
