// What the device's logcat prints for a record, in its threadtime form
// "MM-DD HH:MM:SS.mmm  PID  TID P TAG     : text", one line per line of the
// message. Made by the reader (logcat), not by the writer: a log call costs
// one write of the record, as on a device, whatever the reader wants later.
#include <log/log_filter.h>
#include <log/log_records.h>

#include <cstdio>

#include "LogSinks.h"

std::string liblog_threadtime(const LogRecord& record) {
    struct tm local {};
    localtime_r(&record.when.tv_sec, &local);
    char prefix[96];
    snprintf(prefix, sizeof(prefix), "%02d-%02d %02d:%02d:%02d.%03ld %5d %5d %c ", local.tm_mon + 1, local.tm_mday,
             local.tm_hour, local.tm_min, local.tm_sec, record.when.tv_nsec / 1000000, static_cast<int>(record.pid),
             static_cast<int>(record.tid), hostlog::priorityLetter(record.priority));
    std::string head = prefix + record.tag;
    if (record.tag.size() < 8) head.append(8 - record.tag.size(), ' ');
    head += ": ";
    std::string out;
    hostlog::forEachMessageLine(record.text, [&](std::string_view line) {
        out += head;
        out += line;
        out += '\n';
    });
    return out;
}
