// Small file-system helpers for the partition directory tests.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace treehelpers {

inline bool exists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

inline struct stat statOf(const std::string& path) {
    struct stat st = {};
    lstat(path.c_str(), &st);
    return st;
}

inline unsigned modeOf(const std::string& path) { return statOf(path).st_mode & 07777; }

// Makes every directory of path (mode 0755, owner root) like mkdir -p.
inline void makeDirs(const std::string& path) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
        mkdir(path.substr(0, slash).c_str(), 0755);
    mkdir(path.c_str(), 0755);
}

// Writes `size` bytes to path, making its directories first.
inline bool writeFile(const std::string& path, size_t size = 1) {
    makeDirs(path.substr(0, path.rfind('/')));
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    std::string bytes(size, 'b');
    bool ok = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    close(fd);
    return ok;
}

// Sets the process umask for one scope, so modes can be compared exactly.
class Umask {
public:
    explicit Umask(mode_t mask) : old_(umask(mask)) {}
    ~Umask() { umask(old_); }

private:
    mode_t old_;
};

}  // namespace treehelpers
