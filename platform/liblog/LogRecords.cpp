// The record file behind the log_records.h queries: one line per record,
// "buffer prio pid tid seconds nanoseconds tag text" separated by tabs, with
// tag and text escaped so that newlines survive.
#include <log/record_file.h>

#include <cstdlib>

#include "LogSinks.h"

namespace hostlog {
namespace {

RecordFile& records() {
    static auto* file = new RecordFile("/sim/log/records");
    return *file;
}

std::string encode(const LogRecord& r) {
    return std::to_string(r.buffer) + '\t' + std::to_string(r.priority) + '\t' + std::to_string(r.pid) + '\t' +
           std::to_string(r.tid) + '\t' + std::to_string(r.when.tv_sec) + '\t' + std::to_string(r.when.tv_nsec) +
           '\t' + escapeField(r.tag) + '\t' + escapeField(r.text) + '\n';
}

bool decode(const std::string& line, LogRecord* out) {
    std::vector<std::string> f = splitFields(line);
    if (f.size() != 8) return false;
    out->buffer = atoi(f[0].c_str());
    out->priority = atoi(f[1].c_str());
    out->pid = static_cast<pid_t>(atol(f[2].c_str()));
    out->tid = static_cast<pid_t>(atol(f[3].c_str()));
    out->when.tv_sec = static_cast<time_t>(atoll(f[4].c_str()));
    out->when.tv_nsec = atol(f[5].c_str());
    out->tag = unescapeField(f[6]);
    out->text = unescapeField(f[7]);
    return true;
}

}  // namespace

void keepRecord(const LogRecord& record) { records().append(encode(record)); }

}  // namespace hostlog

std::vector<LogRecord> liblog_records() {
    std::vector<LogRecord> out;
    for (const std::string& line : hostlog::splitLines(hostlog::records().readAll())) {
        LogRecord r{};
        if (hostlog::decode(line, &r)) out.push_back(std::move(r));
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
