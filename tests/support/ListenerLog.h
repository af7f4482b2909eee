// The listeners' own log lines (tag "SocketListener"), for the tests of
// clients that misbehave, in-process and against a running daemon.
#pragma once

#include <log/log_records.h>

#include <chrono>
#include <string>
#include <vector>

namespace listenerlog {

using Clock = std::chrono::steady_clock;

inline long long msSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// The listener lines whose text starts with prefix, oldest first.
inline std::vector<std::string> listenerLines(const std::string& prefix) {
    std::vector<std::string> out;
    for (const LogRecord& r : liblog_records()) {
        if (r.tag == "SocketListener" && r.text.rfind(prefix, 0) == 0) out.push_back(r.text);
    }
    return out;
}

}  // namespace listenerlog
