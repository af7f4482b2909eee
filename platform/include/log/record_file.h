// Host-only: append-only record files shared by every process of the
// simulated device (liblog's records, the device log, the restorecon calls).
//
// Each record is one line, appended with a single write() on an O_APPEND
// descriptor, so records of concurrent processes never interleave. A record
// file removed under a writer (the test harness wipes /sim between tests) is
// noticed (link count 0) and created anew: at the next append, or for a hot
// file (the log) at the first append 50 ms after the last look, so that a
// log call stays one system call. A wipe by this process (deviceWiped) is
// noticed at once. Outside the device (no "/sim" directory) records are kept
// in this process only.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace hostlog {

class RecordFile {
public:
    enum class Recheck { EveryAppend, Periodically };
    // path: e.g. "/sim/log/records". The object is meant to live for the
    // whole process (a function-local static), as descriptors stay cached.
    explicit RecordFile(const char* path, Recheck recheck = Recheck::EveryAppend);
    ~RecordFile();
    RecordFile(const RecordFile&) = delete;
    RecordFile& operator=(const RecordFile&) = delete;

    // Appends text as one write (callers end it with a newline). Answers
    // false when the device file cannot be written.
    bool append(const std::string& text);
    // Whole content, as every process of the device wrote it.
    std::string readAll();
    // Empties the file for every process (writers keep appending to it).
    void clear();
    // This process has just removed the device's files: every record file
    // of the process opens its path again at its next append.
    static void deviceWiped();

private:
    struct State;
    std::unique_ptr<State> state_;
};

// Record fields are separated by tabs and records by newlines; escaping keeps
// both (and backslashes, carriage returns) inside a field.
std::string escapeField(const std::string& raw);
// Appends raw to out, escaped as escapeField does.
void appendEscaped(std::string* out, std::string_view raw);
std::string unescapeField(const std::string& escaped);
// Splits one record line at tabs into its still-escaped fields.
std::vector<std::string> splitFields(const std::string& line);
// Complete lines of a record file's text (a trailing partial line is dropped).
std::vector<std::string> splitLines(const std::string& text);

}  // namespace hostlog
