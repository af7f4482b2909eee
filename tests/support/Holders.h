// Real child processes that hold something under a path, for the process
// killer's tests. Each holder is a child of the test, parked until it is
// signalled; the destructor kills and reaps whatever is left.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace holders {

class Holder {
public:
    // Forks a child that runs `grab` (which must use only async-signal-safe
    // calls and answer true on success), reports back, and waits for signals.
    explicit Holder(const std::function<bool()>& grab);
    // Forks a child that runs `grab`, then execs `program` with argv[0] set
    // to `name` (and one argument); returns once the exec is visible.
    Holder(const std::function<bool()>& grab, const char* program, const char* name, const char* arg);
    ~Holder();
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

    pid_t pid() const { return pid_; }
    bool ready() const { return ready_; }
    // Still running (not exited, not a zombie).
    bool alive() const;
    // Reaps the child, waiting at most `ms`; answers the signal that ended
    // it, 0 for a normal exit, -1 if it is still running.
    int reap(int ms = 2000);

private:
    pid_t pid_ = -1;
    bool ready_ = false;
    bool reaped_ = false;
};

// The name the killer reports for a child forked (not exec'd) from the test.
std::string forkedChildName();

// Writes a file of `size` bytes (directories above it made).
bool writeFile(const std::string& path, size_t size);

}  // namespace holders
