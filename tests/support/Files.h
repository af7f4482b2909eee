// File-system helpers every test folder uses: make, write, read and look at
// files the way a test needs them (errors show up as failed expectations on
// what was made, not as exceptions).
#pragma once

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace testfs {

// True when path exists, a dangling link included.
inline bool exists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

// The lstat record of path; zero-filled when there is none.
inline struct stat statOf(const std::string& path) {
    struct stat st = {};
    lstat(path.c_str(), &st);
    return st;
}

inline unsigned modeOf(const std::string& path) { return statOf(path).st_mode & 07777; }
inline uid_t uidOf(const std::string& path) { return statOf(path).st_uid; }

// Makes every missing directory of path (mode 0755, owner root) like mkdir -p.
inline bool makeDirs(const std::string& path) {
    for (size_t pos = path.find('/', 1);; pos = path.find('/', pos + 1)) {
        std::string prefix = path.substr(0, pos);
        if (mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) return false;
        if (pos == std::string::npos) return true;
    }
}

// Writes text as the whole content of path, making its directories first.
inline bool writeFile(const std::string& path, const std::string& text) {
    makeDirs(path.substr(0, path.rfind('/')));
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    return static_cast<bool>(out);
}

// Writes `size` filler bytes to path, making its directories first.
inline bool writeFile(const std::string& path, size_t size = 1) { return writeFile(path, std::string(size, 'b')); }

// The whole content of path; empty when it cannot be read.
inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

inline std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

// Sets the process umask for one scope, so modes can be compared exactly.
class Umask {
public:
    explicit Umask(mode_t mask) : old_(umask(mask)) {}
    ~Umask() { umask(old_); }

private:
    mode_t old_;
};

}  // namespace testfs
