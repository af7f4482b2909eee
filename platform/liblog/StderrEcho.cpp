// The echo of a host build: "P/tag(  pid): text" on stderr for the records
// that ANDROID_LOG_TAGS lets through (INFO and above when it is unset).
#include <log/log.h>
#include <log/log_filter.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "LogSinks.h"

namespace hostlog {
namespace {

// The filter ANDROID_LOG_TAGS spells now. It is looked up on every call, so
// a child given its own ANDROID_LOG_TAGS after fork is filtered by it, but
// parsed again only when its text changed. A malformed entry keeps the ones
// before it.
const TagFilter& currentFilter() {
    struct Parsed {
        bool known = false;
        bool set = false;
        std::string text;
        TagFilter filter{ANDROID_LOG_INFO};
    };
    Parsed& tParsed = threadOwned<Parsed>();
    const char* text = getenv("ANDROID_LOG_TAGS");
    if (tParsed.known && tParsed.set == (text != nullptr) && (!text || tParsed.text == text)) return tParsed.filter;
    tParsed.known = true;
    tParsed.set = text != nullptr;
    tParsed.text = text ? text : "";
    tParsed.filter = TagFilter(ANDROID_LOG_INFO);
    tParsed.filter.parse(text);
    return tParsed.filter;
}

}  // namespace

void echoToStderr(const LogEntry& entry) {
    if (!currentFilter().allows(entry.tag, entry.priority)) return;
    char head[64];
    char pid[32];
    snprintf(head, sizeof(head), "%c/", priorityLetter(entry.priority));
    snprintf(pid, sizeof(pid), "(%5d): ", static_cast<int>(entry.pid));
    std::string out;
    forEachMessageLine(entry.text, [&](std::string_view line) {
        out += head;
        out += entry.tag;
        out += pid;
        out += line;
        out += '\n';
    });
    // One write, so lines of processes sharing stderr do not interleave.
    if (write(STDERR_FILENO, out.data(), out.size()) < 0) return;
}

}  // namespace hostlog
