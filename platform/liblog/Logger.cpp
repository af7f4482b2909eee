// Minimal host liblog: keeps every record; the full edition (device log file
// in threadtime form, stderr echo) replaces this file.
#include <log/log.h>
#include <log/log_records.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <unistd.h>

namespace {
std::mutex gLock;
std::vector<LogRecord>& store() {
    static auto* s = new std::vector<LogRecord>;
    return *s;
}

int vlog(int buf, int prio, const char* tag, const char* fmt, va_list ap) {
    char text[4096];
    vsnprintf(text, sizeof(text), fmt, ap);
    std::lock_guard<std::mutex> g(gLock);
    store().push_back({buf, prio, getpid(), tag ? tag : "", text});
    return 1;
}
}  // namespace

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int r = vlog(LOG_ID_MAIN, prio, tag, fmt, ap);
    va_end(ap);
    return r;
}

extern "C" int __android_log_buf_print(int bufID, int prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int r = vlog(bufID, prio, tag, fmt, ap);
    va_end(ap);
    return r;
}

std::vector<LogRecord> liblog_records() {
    std::lock_guard<std::mutex> g(gLock);
    return store();
}

void liblog_clear() {
    std::lock_guard<std::mutex> g(gLock);
    store().clear();
}

int liblog_count(const std::string& text, const char* tag, int priority, int buffer) {
    int n = 0;
    for (const auto& r : liblog_records())
        if (r.text == text && (!tag || r.tag == tag) && (priority < 0 || r.priority == priority) &&
            (buffer < 0 || r.buffer == buffer))
            ++n;
    return n;
}

bool liblog_any_contains(const std::string& fragment) {
    for (const auto& r : liblog_records())
        if (r.text.find(fragment) != std::string::npos) return true;
    return false;
}
