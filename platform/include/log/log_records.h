// Host-only: the records the host liblog keeps, for tests and the simulator.
// Every process of the device appends to the same record file
// ("/sim/log/records"), one write per record, so a test can assert on lines
// that a daemon in another process logged; logcat reads the same file.
// Outside the device the records stay in-process.
#pragma once

#include <sys/types.h>
#include <time.h>

#include <string>
#include <vector>

struct LogRecord {
    int buffer;    // log_id_t
    int priority;  // android_LogPriority
    pid_t pid;
    std::string tag;
    std::string text;  // the formatted message, exactly as logged (cut at 4068 bytes)
    pid_t tid = 0;
    timespec when{};  // wall-clock time of the call
};

// All records since the device was reset (or liblog_clear), oldest first.
std::vector<LogRecord> liblog_records();
// Forgets every record so far, for every process of the device.
void liblog_clear();
// Number of records with this exact text (and tag, priority, buffer when
// they are not null / -1).
int liblog_count(const std::string& text, const char* tag = nullptr, int priority = -1, int buffer = -1);
// True when some record's text contains the given bytes.
bool liblog_any_contains(const std::string& fragment);
// One line of the record file into out; false when it is not a record.
bool liblog_decode_record(const std::string& line, LogRecord* out);
// What logcat prints for a record in its threadtime form: a line
// "MM-DD HH:MM:SS.mmm  PID  TID P TAG     : text" per line of the message.
std::string liblog_threadtime(const LogRecord& record);
