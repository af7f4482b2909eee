// Host-only: the label restores asked of the host SELinux library. Every
// process of the device appends to one record file ("/sim/log/restorecon"),
// so a test sees the calls a daemon in another process made.
#pragma once

#include <string>
#include <vector>

struct RestoreconCall {
    std::string path;
    int userId;
    unsigned int flags;
    int result;  // what the call answered: 0, or -1 (armed failure, missing path)
};

// Every call since the device was reset (or restorecon_clear), oldest first.
std::vector<RestoreconCall> restorecon_calls();
// Forgets the calls so far, for every process of the device.
void restorecon_clear();
// Number of calls for this path (and user, flags when not -1) that answered 0.
int restorecon_count(const std::string& path, int userId = -1, long flags = -1);
