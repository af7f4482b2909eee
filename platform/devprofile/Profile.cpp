#include "devprofile/DeviceProfile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <sstream>
#include "base/FileIo.h"

namespace devprofile {
namespace {

// Every writer bumps this count, in a small file beside the profile mapped
// by every process of the device, after it replaced the profile. A reader
// whose copy was read at the current count needs no system call to know it
// is current: values are looked up on every command the daemon serves.
using ChangeCount = std::atomic<uint64_t>;
static_assert(ChangeCount::is_always_lock_free, "the count is shared between processes");

// The count of the profile at path, mapped; nullptr where it cannot be
// (outside the device, a read-only tree): then the file is looked at each time.
ChangeCount* mapChangeCount(const std::string& profilePath) {
    std::string countPath = profilePath + ".changes";
    int fd = open(countPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return nullptr;
    struct stat st;
    bool sized = fstat(fd, &st) == 0 &&
                 (st.st_size >= static_cast<off_t>(sizeof(ChangeCount)) || ftruncate(fd, sizeof(ChangeCount)) == 0);
    void* at = sized ? mmap(nullptr, sizeof(ChangeCount), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
    close(fd);  // the mapping stays
    return at == MAP_FAILED ? nullptr : static_cast<ChangeCount*>(at);
}

void unmapChangeCount(ChangeCount* count) {
    if (count) munmap(count, sizeof(ChangeCount));
}

struct Cache {
    std::mutex lock;
    dev_t dev = 0;
    ino_t ino = 0;
    timespec mtime{};
    off_t size = -1;
    std::map<std::string, std::string> values;
    bool mapped = false;  // count below asked for (it may still be nullptr)
    ChangeCount* count = nullptr;
    uint64_t readAtCount = 0;
    bool current = false;  // values were read at readAtCount
};

Cache& cache() {
    static Cache* c = new Cache;  // never destroyed: used from atexit paths
    return *c;
}

std::map<std::string, std::string> parse(const std::string& text) {
    std::map<std::string, std::string> out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        size_t eq = line.find('=');
        if (eq == std::string::npos || eq == 0) continue;
        out[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return out;
}

std::string readAll(int fd) {
    std::string text;
    pelk::readAll(fd, &text);
    return text;
}

// Brings c.values up to date with the file; c.lock held.
void refresh(Cache& c) {
    std::string p = path();
    if (!c.mapped) {
        c.count = mapChangeCount(p);
        c.mapped = true;
    }
    // Taken before the file is read: a change made meanwhile shows as a newer count next time.
    uint64_t count = c.count ? c.count->load(std::memory_order_acquire) : 0;
    if (c.count && c.current && count == c.readAtCount) return;
    c.readAtCount = count;
    c.current = c.count != nullptr;
    struct stat st;
    if (stat(p.c_str(), &st) != 0) {
        c.values.clear();
        c.size = -1;
        return;
    }
    if (st.st_dev == c.dev && st.st_ino == c.ino && st.st_size == c.size && st.st_mtim.tv_sec == c.mtime.tv_sec &&
        st.st_mtim.tv_nsec == c.mtime.tv_nsec) {
        return;
    }
    int fd = open(p.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        c.current = false;
        return;
    }
    struct stat now;
    fstat(fd, &now);
    c.values = parse(readAll(fd));
    close(fd);
    c.dev = now.st_dev;
    c.ino = now.st_ino;
    c.size = now.st_size;
    c.mtime = now.st_mtim;
}

std::map<std::string, std::string> load() {
    Cache& c = cache();
    std::lock_guard<std::mutex> guard(c.lock);
    refresh(c);
    return c.values;
}

// One value, or fallback; no copy of the whole profile.
std::string lookUp(const std::string& key, const std::string& fallback) {
    Cache& c = cache();
    std::lock_guard<std::mutex> guard(c.lock);
    refresh(c);
    auto it = c.values.find(key);
    return it == c.values.end() ? fallback : it->second;
}

// Holds the writers' lock for one read-modify-write of the profile.
class WriteLock {
public:
    WriteLock() {
        std::string lockPath = path() + ".lock";
        fd_ = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        if (fd_ >= 0) flock(fd_, LOCK_EX);
    }
    ~WriteLock() {
        if (fd_ >= 0) close(fd_);  // closing releases the lock
    }
    WriteLock(const WriteLock&) = delete;
    WriteLock& operator=(const WriteLock&) = delete;
    bool ok() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

std::map<std::string, std::string> readLocked() {
    int fd = open(path().c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return {};
    auto values = parse(readAll(fd));
    close(fd);
    return values;
}

bool writeLocked(const std::map<std::string, std::string>& values) {
    std::string text;
    for (const auto& kv : values) text += kv.first + "=" + kv.second + "\n";
    std::string tmp = path() + ".tmp";
    int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ok = (close(fd) == 0) && ok;
    if (!ok || rename(tmp.c_str(), path().c_str()) != 0) {
        unlink(tmp.c_str());
        return false;
    }
    // Mapped afresh: this process's own mapping may be of a count wiped with the device.
    ChangeCount* count = mapChangeCount(path());
    if (count) count->fetch_add(1, std::memory_order_release);
    unmapChangeCount(count);
    return true;
}

template <typename Edit>
bool modify(Edit edit) {
    WriteLock lock;
    if (!lock.ok()) return false;
    auto values = readLocked();
    if (!edit(values)) return true;
    return writeLocked(values);
}

}  // namespace

std::string path() {
    const char* env = getenv("PELK_PROFILE");
    return (env && *env) ? env : "/sim/profile";
}

std::map<std::string, std::string> snapshot() { return load(); }

std::string get(const std::string& key, const std::string& fallback) { return lookUp(key, fallback); }

long getInt(const std::string& key, long fallback) {
    std::string v = get(key);
    if (v.empty()) return fallback;
    char* end = nullptr;
    long n = strtol(v.c_str(), &end, 10);
    return (end && *end == '\0') ? n : fallback;
}

bool set(const std::string& key, const std::string& value) {
    return modify([&](std::map<std::string, std::string>& values) {
        if (value.empty())
            values.erase(key);
        else
            values[key] = value;
        return true;
    });
}

bool erase(const std::string& key) { return set(key, ""); }

bool replace(const std::map<std::string, std::string>& values) {
    return modify([&](std::map<std::string, std::string>& current) {
        current = values;
        return true;
    });
}

bool failNext(const std::string& function, int times) {
    return set("fail." + function, times > 0 ? std::to_string(times) : "");
}

bool shouldFail(const char* function) {
    std::string key = std::string("fail.") + function;
    // Fast path: nothing armed for this function, no lock taken.
    if (get(key).empty()) return false;
    bool fail = false;
    modify([&](std::map<std::string, std::string>& values) {
        auto it = values.find(key);
        if (it == values.end()) return false;
        long left = strtol(it->second.c_str(), nullptr, 10);
        fail = left > 0;
        if (left > 1)
            it->second = std::to_string(left - 1);
        else
            values.erase(it);
        return true;
    });
    return fail;
}

void forgetCachedCopy() {
    Cache& c = cache();
    std::lock_guard<std::mutex> guard(c.lock);
    unmapChangeCount(c.count);
    c.count = nullptr;
    c.mapped = false;
    c.current = false;
    c.size = -1;
}

double timeScale() {
    std::string v = get("time.scale");
    if (v.empty()) return 1.0;
    char* end = nullptr;
    double f = strtod(v.c_str(), &end);
    return (end && *end == '\0' && f >= 0) ? f : 1.0;
}

std::vector<int> containerUsers() {
    std::vector<int> users;
    for (const auto& kv : load()) {
        if (kv.first.compare(0, 5, "user.") != 0) continue;
        char* end = nullptr;
        long id = strtol(kv.first.c_str() + 5, &end, 10);
        if (end && *end == '\0' && id >= 0) users.push_back(static_cast<int>(id));
    }
    std::sort(users.begin(), users.end());
    return users;
}

bool isContainerUser(int user) { return !get("user." + std::to_string(user)).empty(); }

bool userHasKind(int user, const char* kind) {
    std::string kinds = get("user." + std::to_string(user));
    if (kinds.empty()) return false;
    std::istringstream in(kinds);
    std::string item;
    while (std::getline(in, item, ','))
        if (item == kind) return true;
    return false;
}

}  // namespace devprofile
