// Finds the processes that still hold something under a path (an open file, a
// mapped file, a working directory, a root or an executable) and, when asked,
// signals them so that storage can be unmounted or a file removed. Every
// holder is reported under the tag "ProcessKiller". The framework's
// "system_server" (uid 1000) is never signalled. The class holds no state.
#pragma once

#include <stddef.h>

class ProcessKiller {
public:
    // Walks /proc in directory order. action 1 sends SIGTERM, 2 SIGKILL, any
    // other value only reports. No wait follows the signal.
    static void killProcessesWithOpenFiles(const char* path, int action);
    // Walks /proc by name, last first, sends `signal` as given (0: report
    // only) and gives each signalled process up to 1.5 s to go away.
    static void KillProcessesWithOpenFilesViaReverse(const char* path, int signal);

    // True when `path` is `mountPoint` or lies below it. A mount point shorter
    // than two characters ("/" among them) matches nothing.
    static bool pathMatchesMountPoint(const char* path, const char* mountPoint);
    // True when `path` is a symbolic link whose target (at most size-1 bytes,
    // terminated) was read into buf.
    static bool readSymLink(const char* path, char* buf, size_t size);
    // The first argument of the process's command line, or "???".
    static void getProcessName(int pid, char* buf, size_t size);
    // Owner uid of /proc/<pid>, or -1.
    static int getProcessUid(int pid);
    // Decimal value of an all-digit name, -1 for any other character, 0 for "".
    static int getPid(const char* name);

    // An open descriptor of pid points under path; its target goes to found.
    static bool checkFileDescriptorSymLinks(int pid, const char* path, char* found, size_t size);
    static bool checkFileDescriptorSymLinks(int pid, const char* path);
    // A mapped file of pid lies under path; the map line's path part goes to found.
    static bool checkFileMaps(int pid, const char* path, char* found, size_t size);
    static bool checkFileMaps(int pid, const char* path);
    // /proc/<pid>/<name> ("cwd", "root", "exe") is a link pointing under path.
    static bool checkSymLink(int pid, const char* path, const char* name);

private:
    // Reports pid when it holds something under path. True when it does and
    // may be signalled; false for non-holders and the exempt system_server.
    // `prefix` starts every holder line ("" or "!@").
    static bool reportHolder(int pid, const char* path, const char* prefix);
};
