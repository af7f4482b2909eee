// The device log "/sim/log/logcat": what the device's logcat prints, in its
// threadtime form "MM-DD HH:MM:SS.mmm  PID  TID P TAG     : text".
#include <log/log_filter.h>
#include <log/record_file.h>

#include <pthread.h>

#include <cstdio>
#include <mutex>
#include <string>

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

// The parts of a threadtime prefix that change slowly: the second (records
// come many to a second) and the pid and tid (the same for every record of
// a thread). Each thread keeps its own and renders them again only when they
// change; a forked child notices its new numbers.
struct StampParts {
    time_t seconds = -1;
    char date[64] = "";  // "MM-DD HH:MM:SS."
    pid_t pid = -1;
    pid_t tid = -1;
    char ids[48] = "";  // " PID   TID " right-aligned in five columns
};

// "MM-DD HH:MM:SS.mmm  PID  TID P TAG     : " into out (replacing it).
void threadtimePrefix(const LogEntry& e, std::string* out) {
    thread_local StampParts t;  // trivially destructible: usable until the thread ends
    if (e.when.tv_sec != t.seconds) {
        struct tm local {};
        {
            std::lock_guard<std::mutex> guard(timeLock());
            localtime_r(&e.when.tv_sec, &local);
        }
        snprintf(t.date, sizeof(t.date), "%02d-%02d %02d:%02d:%02d.", local.tm_mon + 1, local.tm_mday, local.tm_hour,
                 local.tm_min, local.tm_sec);
        t.seconds = e.when.tv_sec;
    }
    if (e.pid != t.pid || e.tid != t.tid) {
        snprintf(t.ids, sizeof(t.ids), " %5d %5d ", static_cast<int>(e.pid), static_cast<int>(e.tid));
        t.pid = e.pid;
        t.tid = e.tid;
    }
    long ms = e.when.tv_nsec / 1000000;
    const char millis[] = {static_cast<char>('0' + ms / 100), static_cast<char>('0' + ms / 10 % 10),
                           static_cast<char>('0' + ms % 10)};
    out->assign(t.date);
    out->append(millis, sizeof(millis));
    out->append(t.ids);
    *out += priorityLetter(e.priority);
    *out += ' ';
    out->append(e.tag);
    if (e.tag.size() < 8) out->append(8 - e.tag.size(), ' ');
    out->append(": ");
}

}  // namespace

void appendDeviceLog(const LogEntry& entry) {
    // Kept per thread so that a busy logger allocates nothing.
    struct Lines {
        std::string prefix;
        std::string out;
    };
    Lines& t = threadOwned<Lines>();
    threadtimePrefix(entry, &t.prefix);
    t.out.clear();
    forEachMessageLine(entry.text, [&](std::string_view line) {
        t.out += t.prefix;
        t.out += line;
        t.out += '\n';
    });
    deviceLog().append(t.out);  // one write: a record's lines stay together
}

}  // namespace hostlog
