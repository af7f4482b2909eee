// The platform's logging interface (host edition: platform/liblog).
//
// The host edition keeps every record for tests (log/log_records.h), appends
// it to the device log "/sim/log/logcat" in logcat's threadtime form (what
// the device's "logcat" prints), and echoes it to stderr as a host build of
// the platform does: one "P/tag(  pid): text" line per line of the message,
// filtered by the environment variable ANDROID_LOG_TAGS (log/log_filter.h:
// "*:s" silences everything, "pelkd:d *:e" shows pelkd from DEBUG and the
// rest from ERROR). Unset, INFO and above are echoed, as on a host build.
// Messages longer than 4068 bytes are cut.
#pragma once

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

typedef enum log_id {
    LOG_ID_MAIN = 0,
    LOG_ID_RADIO = 1,
    LOG_ID_EVENTS = 2,
    LOG_ID_SYSTEM = 3,
    LOG_ID_CRASH = 4,
} log_id_t;

int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
int __android_log_buf_print(int bufID, int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));
int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap)
    __attribute__((format(printf, 3, 0)));
int __android_log_write(int prio, const char* tag, const char* text);
int __android_log_buf_write(int bufID, int prio, const char* tag, const char* text);

#ifdef __cplusplus
}
#endif
