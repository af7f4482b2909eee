#include <fcntl.h>
#include <log/record_file.h>
#include <pthread.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

#include "base/Secret.h"
#include "base/UniqueFd.h"

namespace hostlog {
namespace {

// The device's own folder; without it we are not inside a simulated device.
const char kDeviceRoot[] = "/sim";

// One lock for every record file of the process. It is taken around fork()
// so that a child (the engine forks workers that log) never starts with it
// held by a thread that does not exist there.
std::mutex& recordLock() {
    static auto* lock = new std::mutex;  // never destroyed: used from atexit paths
    return *lock;
}
void lockBeforeFork() { recordLock().lock(); }
void unlockAfterFork() { recordLock().unlock(); }

void registerForkHandlers() {
    static std::once_flag once;
    std::call_once(once, [] { pthread_atfork(lockBeforeFork, unlockAfterFork, unlockAfterFork); });
}

bool onDevice() {
    struct stat st;
    return stat(kDeviceRoot, &st) == 0 && S_ISDIR(st.st_mode);
}

std::string parentOf(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 ? "/" : path.substr(0, slash);
}

int openForAppend(const std::string& path) {
    const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC;
    int fd = open(path.c_str(), flags, 0644);
    if (fd < 0 && errno == ENOENT && onDevice()) {
        // The log folder went with a wipe of the device; bring it back.
        mkdir(parentOf(path).c_str(), 0755);
        fd = open(path.c_str(), flags, 0644);
    }
    return fd;
}

bool unlinkedUnderUs(int fd) {
    struct stat st;
    return fstat(fd, &st) != 0 || st.st_nlink == 0;
}

// Bumped by deviceWiped(); a descriptor opened under an older one is stale.
unsigned sWipes = 0;  // guarded by recordLock()

long long coarseMillis() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);  // read from memory, not a system call
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

const long long kRecheckMs = 50;

}  // namespace

struct RecordFile::State {
    std::string path;
    Recheck recheck;
    pelk::UniqueFd fd;
    unsigned openedAtWipe = 0;
    long long lastLookMs = 0;
    std::string memory;  // records kept in-process outside the device

    // Whether fd may still be the file at path.
    bool fdStillCurrent() {
        if (!fd.ok() || openedAtWipe != sWipes) return false;
        if (recheck == Recheck::Periodically) {
            long long now = coarseMillis();
            if (now - lastLookMs < kRecheckMs) return true;
            lastLookMs = now;
        }
        return !unlinkedUnderUs(fd.get());
    }
};

RecordFile::RecordFile(const char* path, Recheck recheck) : state_(new State) {
    state_->path = path;
    state_->recheck = recheck;
    registerForkHandlers();
}

void RecordFile::deviceWiped() {
    std::lock_guard<std::mutex> guard(recordLock());
    ++sWipes;
}

RecordFile::~RecordFile() = default;

bool RecordFile::append(const std::string& text) {
    std::lock_guard<std::mutex> guard(recordLock());
    pelk::UniqueFd& fd = state_->fd;
    if (!state_->fdStillCurrent()) {
        fd.reset(openForAppend(state_->path));
        state_->openedAtWipe = sWipes;
        state_->lastLookMs = coarseMillis();
    }
    if (!fd.ok()) {
        if (onDevice()) return false;
        state_->memory += text;
        return true;
    }
    return write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

std::string RecordFile::readAll() {
    std::lock_guard<std::mutex> guard(recordLock());
    pelk::UniqueFd fd(open(state_->path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) return onDevice() ? std::string() : state_->memory;
    std::string text;
    char buf[16384];
    ssize_t n;
    while ((n = read(fd.get(), buf, sizeof(buf))) > 0) text.append(buf, static_cast<size_t>(n));
    return text;
}

void RecordFile::clear() {
    std::lock_guard<std::mutex> guard(recordLock());
    state_->memory.clear();
    // Truncating keeps every writer's O_APPEND descriptor valid. A missing
    // file has nothing to clear.
    if (truncate(state_->path.c_str(), 0) != 0) return;
}

void appendEscaped(std::string* out, std::string_view raw) {
    static const char kSpecial[] = "\\\n\t\r";
    for (;;) {
        size_t at = raw.find_first_of(kSpecial);
        out->append(raw.substr(0, at));
        if (at == std::string_view::npos) return;
        switch (raw[at]) {
            case '\\': *out += "\\\\"; break;
            case '\n': *out += "\\n"; break;
            case '\t': *out += "\\t"; break;
            default: *out += "\\r"; break;
        }
        raw.remove_prefix(at + 1);
    }
}

std::string escapeField(const std::string& raw) {
    std::string out;
    out.reserve(raw.size() + 8);
    appendEscaped(&out, raw);
    return out;
}

std::string unescapeField(const std::string& escaped) {
    std::string out;
    out.reserve(escaped.size());
    for (size_t i = 0; i < escaped.size(); ++i) {
        char c = escaped[i];
        if (c != '\\' || i + 1 == escaped.size()) {
            out += c;
            continue;
        }
        char next = escaped[++i];
        switch (next) {
            case 'n': out += '\n'; break;
            case 't': out += '\t'; break;
            case 'r': out += '\r'; break;
            default: out += next;  // "\\" and anything unknown stand for themselves
        }
    }
    return out;
}

std::vector<std::string> splitFields(const std::string& line) {
    std::vector<std::string> fields;
    size_t start = 0;
    for (;;) {
        size_t tab = line.find('\t', start);
        fields.push_back(line.substr(start, tab == std::string::npos ? std::string::npos : tab - start));
        if (tab == std::string::npos) return fields;
        start = tab + 1;
    }
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1)
        lines.push_back(text.substr(start, nl - start));
    return lines;
}

}  // namespace hostlog
