// Where every log call of the host liblog goes.
#pragma once

#include <sys/types.h>
#include <time.h>

#include <string_view>

namespace hostlog {

// The longest message kept; longer ones are cut, as the device's logger does.
constexpr size_t kMaxMessageBytes = 4068;

// One log call as the sinks see it. Tag and text point into the caller's
// buffers and are valid for the call only.
struct LogEntry {
    int buffer;    // log_id_t
    int priority;  // android_LogPriority
    pid_t pid;
    pid_t tid;
    timespec when;  // wall-clock time of the call
    std::string_view tag;
    std::string_view text;
};

// The shared record file behind the log_records.h queries and logcat.
void keepRecord(const LogEntry& entry);
// stderr, filtered by ANDROID_LOG_TAGS.
void echoToStderr(const LogEntry& entry);

// Calls visit(line) for each line logcat prints for a message: one per line
// of text, trailing newlines dropped, at least one (empty for an empty text).
template <typename Visit>
void forEachMessageLine(std::string_view text, Visit visit) {
    size_t end = text.find_last_not_of('\n');
    std::string_view body = end == std::string_view::npos ? std::string_view() : text.substr(0, end + 1);
    for (;;) {
        size_t nl = body.find('\n');
        visit(body.substr(0, nl));
        if (nl == std::string_view::npos) return;
        body.remove_prefix(nl + 1);
    }
}

// The calling thread's own T, made on first use. Log calls also come from
// exit handlers and static destructors, which run after the main thread's
// thread_local objects are gone: the plain pointer outlives them, so such a
// call gets a fresh T (kept reachable until the process ends) instead of a
// destroyed one. Each use site names a type of its own.
template <typename T>
T& threadOwned() {
    thread_local T* instance = nullptr;
    struct Owner {
        T** slot;
        ~Owner() {
            delete *slot;
            *slot = nullptr;
        }
    };
    thread_local Owner owner{&instance};
    (void)owner;
    if (!instance) instance = new T();
    return *instance;
}

// The calling process and thread as the kernel numbers them. Asked of the
// kernel once per process and thread, not once per record; a fork handler
// makes the child ask again.
pid_t callerPid();
pid_t callerTid();

}  // namespace hostlog
