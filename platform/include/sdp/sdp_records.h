// Host-only: the files the host sensitive-data library was asked to mark.
//
// A mark is an extended attribute on the file itself, so a person at the
// device shell sees it (pelk-tags PATH); every call, marked or not, is also
// kept in a record file shared by the device's processes ("/sim/log/sdp"),
// so a test sees exactly which paths a daemon in another process passed,
// links and device nodes included.
#pragma once

#include <string>
#include <vector>

// "user.pelk.sensitive" holds the engine's (user's) id as decimal text;
// "user.pelk.protected" holds "1".
constexpr char kSdpSensitiveAttribute[] = "user.pelk.sensitive";
constexpr char kSdpProtectedAttribute[] = "user.pelk.protected";

struct SdpCall {
    std::string function;  // "set_sensitive" or "set_protected"
    int userId;            // -1 for set_protected
    std::string path;
    int result;  // 0, or -1 when the file could not be marked
};

// Every call since the device was reset (or the last clear), oldest first.
std::vector<SdpCall> sdp_calls();
void sdp_calls_clear();

// The engine id the file is marked sensitive for; -1 when it is not marked.
int sdp_sensitive_of(const char* path);
bool sdp_is_protected(const char* path);
