// Key and password bytes: wiped with explicit_bzero, which the compiler may
// not drop as a dead store, whichever path leaves the scope.
#pragma once

#include <string.h>

#include <cstddef>
#include <new>
#include <string>
#include <vector>

namespace pelk {

inline void wipe(void* p, size_t n) {
    if (p && n) explicit_bzero(p, n);
}

// A zero-filled fixed buffer for key or password bytes.
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
// heap block handed back by a closed library, or a line of a listener).
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

// A password or key text held as a string: its whole capacity is wiped when
// it goes away. Never copied, so no unwiped copy can be left behind by it.
class SecretString {
public:
    SecretString() = default;
    explicit SecretString(const char* text) : s_(text ? text : "") {}
    ~SecretString() { clear(); }
    SecretString(const SecretString&) = delete;
    SecretString& operator=(const SecretString&) = delete;

    const char* c_str() const { return s_.c_str(); }
    size_t size() const { return s_.size(); }
    bool empty() const { return s_.empty(); }
    // Wipes the whole buffer (not only the live bytes) before emptying it.
    void clear() {
        wipe(&s_[0], s_.capacity());
        s_.clear();
    }
    void assign(const char* text) {
        clear();
        s_.assign(text ? text : "");
    }

private:
    std::string s_;
};

// An allocator whose blocks are wiped before they go back to the heap, so a
// container of secret bytes leaves no copy behind when it grows, shrinks or
// goes away.
template <class T>
struct WipingAllocator {
    using value_type = T;
    WipingAllocator() = default;
    template <class U>
    WipingAllocator(const WipingAllocator<U>&) {}
    T* allocate(size_t n) { return static_cast<T*>(::operator new(n * sizeof(T))); }
    void deallocate(T* p, size_t n) {
        wipe(p, n * sizeof(T));
        ::operator delete(p);
    }
    template <class U>
    bool operator==(const WipingAllocator<U>&) const {
        return true;
    }
    template <class U>
    bool operator!=(const WipingAllocator<U>&) const {
        return false;
    }
};

// Bytes that may hold a secret (a command line with a password or a key):
// every block it ever used is wiped when released. A vector, not a string,
// so no bytes sit in a small-string buffer inside the object itself.
using SecretBytes = std::vector<char, WipingAllocator<char>>;

}  // namespace pelk
