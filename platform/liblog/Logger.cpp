// The device's logging calls. Every record goes to the shared record file
// (one write, as a device's logger takes one) and, filtered, to stderr.
#include <log/log.h>

#include <cstdarg>
#include <cstdio>

#include "LogSinks.h"

namespace {

int writeLog(int buffer, int priority, const char* tag, const char* text) {
    hostlog::LogEntry entry{buffer, priority, hostlog::callerPid(), hostlog::callerTid(), {}, tag ? tag : "", text};
    clock_gettime(CLOCK_REALTIME, &entry.when);
    hostlog::keepRecord(entry);
    hostlog::echoToStderr(entry);
    // What the device's logger answers: the payload bytes (priority, tag and
    // text with their terminators).
    return static_cast<int>(1 + entry.tag.size() + 1 + entry.text.size() + 1);
}

int vlog(int buffer, int priority, const char* tag, const char* fmt, va_list ap) {
    char text[hostlog::kMaxMessageBytes + 1];
    if (!fmt) fmt = "";
    vsnprintf(text, sizeof(text), fmt, ap);  // longer messages are cut here
    return writeLog(buffer, priority, tag, text);
}

int logText(int buffer, int priority, const char* tag, const char* message) {
    char text[hostlog::kMaxMessageBytes + 1];
    snprintf(text, sizeof(text), "%s", message ? message : "");
    return writeLog(buffer, priority, tag, text);
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

extern "C" int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    return vlog(LOG_ID_MAIN, prio, tag, fmt, ap);
}

extern "C" int __android_log_write(int prio, const char* tag, const char* text) {
    return logText(LOG_ID_MAIN, prio, tag, text);
}

extern "C" int __android_log_buf_write(int bufID, int prio, const char* tag, const char* text) {
    return logText(bufID, prio, tag, text);
}
