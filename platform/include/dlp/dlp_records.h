// Host-only: what the host DLP library was asked and what it keeps.
//
// Every process of the device appends to shared record files under
// "/sim/log", so a test sees what a daemon in another process forwarded or
// marked. The library's own state (pending inodes, open files) is replayed
// from the same records, so it too is one state for the whole device, as the
// closed library's is for the daemon that owns it.
#pragma once

#include <map>
#include <string>
#include <vector>

// The extended attribute that holds a DLP file's absolute expiry time, in
// seconds since the epoch, as decimal text.
constexpr char kDlpExpiryAttribute[] = "user.pelk.dlp_expiry";

// ---- "dlp_notify" commands ----

// Every accepted command since the device was reset (or the last clear),
// oldest first, as its words.
std::vector<std::vector<std::string>> dlp_commands();
// Forgets the commands so far, for every process of the device.
void dlp_commands_clear();

// ---- calls of the library's functions ----

// One call. Fields a function does not take keep their defaults.
struct DlpCall {
    std::string function;  // e.g. "setExpiryforFile"
    int pid = -1;
    unsigned long inode = 0;
    int userId = -1;
    long value = 0;  // the expiry handed to set_dlp_file_expiry_time
    std::string path;
    long result = 0;  // what the call answered (true is 1)
};

// Every call since the device was reset (or the last clear), oldest first;
// with a function name, only that function's calls.
std::vector<DlpCall> dlp_calls();
std::vector<DlpCall> dlp_calls(const std::string& function);

// Inodes remembered as pending now, with their pids.
std::map<unsigned long, int> dlp_pending_inodes();
// Paths recorded as open by pid, in the order first recorded.
std::vector<std::string> dlp_open_files(int pid);
// Forgets every call, pending inode and open file, for the whole device.
void dlp_calls_clear();

// The expiry stored on the file at path; -1 when it has none.
long dlp_file_expiry(const char* path);
