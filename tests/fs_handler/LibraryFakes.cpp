// Link-time stand-ins for the DLP and sensitive-data libraries in this test
// binary (see the --wrap options in tests/CMakeLists.txt).
#include "fs_handler/LibraryFakes.h"

#include <errno.h>

namespace fakes {

Library& library() {
    static Library state;
    return state;
}

void reset() { library() = Library(); }

std::vector<std::string> callsOf(const std::string& prefix) {
    std::vector<std::string> out;
    for (const std::string& call : library().calls)
        if (call.compare(0, prefix.size(), prefix) == 0) out.push_back(call);
    return out;
}

}  // namespace fakes

namespace {

void record(const std::string& call) { fakes::library().calls.push_back(call); }

}  // namespace

extern "C" {

bool __wrap_putPendingInodeValue(unsigned long inode, int pid) {
    record("putPendingInodeValue " + std::to_string(inode) + " " + std::to_string(pid));
    return fakes::library().putPendingResult;
}
int __wrap_getPidByInode(unsigned long inode) {
    record("getPidByInode " + std::to_string(inode));
    return fakes::library().pidByInode;
}
bool __wrap_clearPendingInode(unsigned long inode) {
    record("clearPendingInode " + std::to_string(inode));
    return fakes::library().clearResult;
}
int __wrap_addOrUpdateMapEntry(int pid, char* path) {
    record("addOrUpdateMapEntry " + std::to_string(pid) + " " + path);
    return 0;
}
int __wrap_setExpiryforFile(int pid, char* path, int userId) {
    record("setExpiryforFile " + std::to_string(pid) + " " + path + " " + std::to_string(userId));
    return fakes::library().setExpiryResult;
}
int __wrap_get_expiryAfter_time(int userId) {
    record("get_expiryAfter_time " + std::to_string(userId));
    return fakes::library().expiryAfter;
}
int __wrap_set_dlp_file_expiry_time(char* path, long expiry) {
    record(std::string("set_dlp_file_expiry_time ") + path);
    fakes::library().lastExpiry = expiry;
    if (fakes::library().dlpExpiryResult != 0) errno = fakes::library().dlpExpiryErrno;
    return fakes::library().dlpExpiryResult;
}
int __wrap_getDLPAuditLogState(void) { return fakes::library().auditState; }
int __wrap_set_sensitive(int userId, char* path) {
    record("set_sensitive " + std::to_string(userId) + " " + path);
    return 0;
}
int __wrap_set_protected(char* path) {
    record(std::string("set_protected ") + path);
    return 0;
}

}  // extern "C"
