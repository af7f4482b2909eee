// The echo of a host build: "P/tag(  pid): text" on stderr for the records
// that ANDROID_LOG_TAGS lets through (INFO and above when it is unset).
#include <log/log.h>
#include <log/log_filter.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "LogSinks.h"

namespace hostlog {

void echoToStderr(const LogRecord& record) {
    // Read on every call, so a child given its own ANDROID_LOG_TAGS after
    // fork is filtered by it. A malformed entry keeps the ones before it.
    TagFilter filter(ANDROID_LOG_INFO);
    filter.parse(getenv("ANDROID_LOG_TAGS"));
    if (!filter.allows(record.tag, record.priority)) return;
    char prefix[64];
    std::string out;
    for (const std::string& line : messageLines(record.text)) {
        snprintf(prefix, sizeof(prefix), "%c/", priorityLetter(record.priority));
        out += prefix;
        out += record.tag;
        snprintf(prefix, sizeof(prefix), "(%5d): ", static_cast<int>(record.pid));
        out += prefix;
        out += line + '\n';
    }
    // One write, so lines of processes sharing stderr do not interleave.
    if (write(STDERR_FILENO, out.data(), out.size()) < 0) return;
}

}  // namespace hostlog
