// The simulated device's zygote stand-in: starts processes as the platform
// starts apps. An app of Android user U with app id A runs as uid (and gid)
// U * 100000 + A, in a mount namespace of its own in which "/storage" is a
// recursive bind of one of the runtime views, "/mnt/runtime/default",
// "/mnt/runtime/read" or "/mnt/runtime/write". /mnt is a filesystem of its
// own on the device, so the process's mountinfo shows "/storage" with the
// root "/runtime/default" (and so on), and "/storage/emulated" inside it is
// the device's emulated storage, the same directory in every view.
//
// Shell (app id 2000 of user 0) and system_server-like processes (app id
// 1000, named "system_server", optionally in the starter's own namespace)
// start the same way. Tests use AppProcess; the device program "zygote-sim"
// offers the same to a shell (sim/tool_zygote-sim.cpp).
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace sim {

enum class StorageView {
    None,     // "/storage" left as the starter sees it
    Default,  // "/mnt/runtime/default"
    Read,     // "/mnt/runtime/read"
    Write,    // "/mnt/runtime/write"
    Full,     // "/mnt/runtime/full": a root the engine knows no mode for
};

struct AppOptions {
    int userId = 0;
    int appId = 10000;  // uid = userId * 100000 + appId
    StorageView view = StorageView::Default;
    // false: the process stays in the starter's mount namespace (the view is
    // then not applied), as a process sharing the daemon's namespace does.
    bool ownMountNamespace = true;
    std::vector<gid_t> groups;         // supplementary groups
    std::vector<std::string> command;  // program (looked up on PATH) and arguments; empty: park
    std::string name;                  // argv[0] as /proc/<pid>/cmdline shows it; empty: command[0]
};

uid_t appUid(int userId, int appId);
// The view's source directory, or nullptr for None.
const char* storageSource(StorageView view);
// "default", "read", "write", "full", "none" to a view; false for another word.
bool parseStorageView(const std::string& word, StorageView* view);

// Forks the process and sets it up: its own mount namespace with the view on
// "/storage", the app's groups, gid and uid, the working directory "/". It
// then runs the command, or parks (sleeps until signalled) when there is
// none. Answers the pid once the command has been executed or the process
// parks, -1 when the set-up or the exec failed (the child is then reaped and
// *error says which step failed and why).
pid_t startApp(const AppOptions& options, std::string* error = nullptr);

// Sets up the calling process itself as startApp sets up its child, then
// executes the command; returns only on failure, with *error set.
void becomeApp(const AppOptions& options, std::string* error);

// An app process owned by a test: started by the constructor, killed and
// reaped by the destructor when still there.
class AppProcess {
public:
    explicit AppProcess(const AppOptions& options);
    ~AppProcess();
    AppProcess(const AppProcess&) = delete;
    AppProcess& operator=(const AppProcess&) = delete;

    bool started() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }
    std::string pidText() const { return std::to_string(pid_); }
    uid_t uid() const { return uid_; }
    const std::string& error() const { return error_; }
    // Still running (not ended, not a zombie).
    bool alive() const;
    // Sends sig and waits for the end; answers the wait status, -1 when
    // there is no process to stop.
    int stop(int sig = SIGKILL);
    // Waits at most timeoutMs for the process to end by itself; answers the
    // wait status, or -1 while it still runs.
    int wait(int timeoutMs);

private:
    pid_t pid_ = -1;
    uid_t uid_ = 0;
    bool reaped_ = false;
    std::string error_;
};

}  // namespace sim
