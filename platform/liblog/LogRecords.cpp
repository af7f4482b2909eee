// The record file behind the log_records.h queries: one line per record,
// "buffer prio pid tid seconds nanoseconds tag text" separated by tabs, with
// tag and text escaped so that newlines survive.
#include <log/log_records.h>
#include <log/record_file.h>

#include <charconv>
#include <cstdlib>
#include <string>
#include <vector>

#include "LogSinks.h"

namespace hostlog {
namespace {

RecordFile& records() {
    // Every log call appends here: looked at only now and then, so a record costs one write.
    static auto* file = new RecordFile("/sim/log/records", RecordFile::Recheck::Periodically);
    return *file;
}

void appendField(std::string* out, long long value) {
    char digits[24];
    std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits), value);
    out->append(digits, end.ptr);
    *out += '\t';
}

// The record's line into out (replacing it).
void encode(const LogEntry& e, std::string* out) {
    out->clear();
    for (long long field :
         {static_cast<long long>(e.buffer), static_cast<long long>(e.priority), static_cast<long long>(e.pid),
          static_cast<long long>(e.tid), static_cast<long long>(e.when.tv_sec), static_cast<long long>(e.when.tv_nsec)})
        appendField(out, field);
    appendEscaped(out, e.tag);
    *out += '\t';
    appendEscaped(out, e.text);
    *out += '\n';
}

}  // namespace

void keepRecord(const LogEntry& entry) {
    // Kept per thread so that a busy logger allocates nothing.
    struct RecordLine {
        std::string text;
    };
    std::string& line = threadOwned<RecordLine>().text;
    encode(entry, &line);
    records().append(line);
}

}  // namespace hostlog

bool liblog_decode_record(const std::string& line, LogRecord* out) {
    std::vector<std::string> f = hostlog::splitFields(line);
    if (f.size() != 8) return false;
    out->buffer = atoi(f[0].c_str());
    out->priority = atoi(f[1].c_str());
    out->pid = static_cast<pid_t>(atol(f[2].c_str()));
    out->tid = static_cast<pid_t>(atol(f[3].c_str()));
    out->when.tv_sec = static_cast<time_t>(atoll(f[4].c_str()));
    out->when.tv_nsec = atol(f[5].c_str());
    out->tag = hostlog::unescapeField(f[6]);
    out->text = hostlog::unescapeField(f[7]);
    return true;
}

std::vector<LogRecord> liblog_records() {
    std::vector<LogRecord> out;
    for (const std::string& line : hostlog::splitLines(hostlog::records().readAll())) {
        LogRecord r{};
        if (liblog_decode_record(line, &r)) out.push_back(std::move(r));
    }
    return out;
}

void liblog_clear() { hostlog::records().clear(); }

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
