// Log records found by how their text starts, and the listeners' own lines
// (tag "SocketListener") that the tests of misbehaving clients wait for.
#pragma once

#include <poll.h>

#include <log/log_records.h>

#include <chrono>
#include <string>
#include <vector>

namespace listenerlog {

using Clock = std::chrono::steady_clock;

inline long long msSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// The texts of the records (of tag, when given) that start with prefix,
// oldest first.
inline std::vector<std::string> linesStartingWith(const std::string& prefix, const char* tag = nullptr) {
    std::vector<std::string> out;
    for (const LogRecord& r : liblog_records()) {
        if ((!tag || r.tag == tag) && r.text.rfind(prefix, 0) == 0) out.push_back(r.text);
    }
    return out;
}

inline int countStartingWith(const std::string& prefix) { return static_cast<int>(linesStartingWith(prefix).size()); }

// The listener lines whose text starts with prefix, oldest first.
inline std::vector<std::string> listenerLines(const std::string& prefix) {
    return linesStartingWith(prefix, "SocketListener");
}

// Waits up to ms, looking every pollMs, for a listener line that starts with
// prefix (exact: that is the whole line).
inline bool waitForListenerLine(const std::string& prefix, int ms, int pollMs, bool exact = false) {
    Clock::time_point start = Clock::now();
    while (msSince(start) < ms) {
        for (const std::string& line : listenerLines(prefix)) {
            if (!exact || line == prefix) return true;
        }
        poll(nullptr, 0, pollMs);
    }
    return false;
}

}  // namespace listenerlog
