// The device log "/sim/log/logcat": what the device's logcat prints, in its
// threadtime form "MM-DD HH:MM:SS.mmm  PID  TID P TAG     : text".
#include <log/log_filter.h>
#include <log/record_file.h>

#include <pthread.h>

#include <cstdio>
#include <mutex>

#include "LogSinks.h"

namespace hostlog {
namespace {

RecordFile& deviceLog() {
    static auto* file = new RecordFile("/sim/log/logcat");
    return *file;
}

// localtime_r takes the C library's time-zone lock, which fork() does not
// release in the child: a child forked while another thread converted a time
// would hang at its first log line. This lock, held across every fork, keeps
// conversions and forks apart.
std::mutex& timeLock() {
    static auto* lock = new std::mutex;  // never destroyed: used from atexit paths
    static std::once_flag once;
    std::call_once(once, [] {
        pthread_atfork([] { timeLock().lock(); }, [] { timeLock().unlock(); }, [] { timeLock().unlock(); });
    });
    return *lock;
}

std::string threadtimePrefix(const LogRecord& r) {
    struct tm local{};
    time_t seconds = r.when.tv_sec;
    {
        std::lock_guard<std::mutex> guard(timeLock());
        localtime_r(&seconds, &local);
    }
    char stamp[96];
    snprintf(stamp, sizeof(stamp), "%02d-%02d %02d:%02d:%02d.%03ld %5d %5d %c ", local.tm_mon + 1, local.tm_mday,
             local.tm_hour, local.tm_min, local.tm_sec, r.when.tv_nsec / 1000000, static_cast<int>(r.pid),
             static_cast<int>(r.tid), priorityLetter(r.priority));
    std::string prefix(stamp);
    prefix += r.tag;
    if (r.tag.size() < 8) prefix.append(8 - r.tag.size(), ' ');
    prefix += ": ";
    return prefix;
}

}  // namespace

std::vector<std::string> messageLines(const std::string& text) {
    size_t end = text.find_last_not_of('\n');
    std::string body = end == std::string::npos ? std::string() : text.substr(0, end + 1);
    std::vector<std::string> lines;
    size_t start = 0;
    for (;;) {
        size_t nl = body.find('\n', start);
        lines.push_back(body.substr(start, nl == std::string::npos ? std::string::npos : nl - start));
        if (nl == std::string::npos) return lines;
        start = nl + 1;
    }
}

void appendDeviceLog(const LogRecord& record) {
    std::string prefix = threadtimePrefix(record);
    std::string out;
    for (const std::string& line : messageLines(record.text)) out += prefix + line + '\n';
    deviceLog().append(out);  // one write: a record's lines stay together
}

}  // namespace hostlog
