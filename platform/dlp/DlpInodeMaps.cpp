// The DLP library's two maps on the simulated device: inodes whose path the
// daemon could not resolve yet (with the pid that initialised them), and the
// files each process opened. Both are replayed from the call records, so
// every process of the device sees the daemon's maps.
//
// A pid below 1 is refused: getPidByInode answers a value below 1 for "no
// pending pid", so such a pid could never be read back.
#include <dlp/dlp.h>
#include <dlp/dlp_records.h>

#include <algorithm>

#include "DlpCallLog.h"
#include "devprofile/DeviceProfile.h"

namespace {

constexpr int kNoPid = -1;

DlpCall inodeCall(const char* function, unsigned long inode, int pid, long result) {
    DlpCall call;
    call.function = function;
    call.inode = inode;
    call.pid = pid;
    call.result = result;
    return call;
}

}  // namespace

std::map<unsigned long, int> dlp_pending_inodes() {
    std::map<unsigned long, int> pending;
    for (const DlpCall& call : hostdlp::readCalls()) {
        if (call.result != 1) continue;
        if (call.function == "putPendingInodeValue") pending[call.inode] = call.pid;
        if (call.function == "clearPendingInode") pending.erase(call.inode);
    }
    return pending;
}

std::vector<std::string> dlp_open_files(int pid) {
    std::vector<std::string> paths;
    for (const DlpCall& call : hostdlp::readCalls()) {
        if (call.function != "addOrUpdateMapEntry" || call.result != 0 || call.pid != pid) continue;
        if (std::find(paths.begin(), paths.end(), call.path) == paths.end()) paths.push_back(call.path);
    }
    return paths;
}

extern "C" bool putPendingInodeValue(unsigned long inode, int pid) {
    bool stored = !devprofile::shouldFail("putPendingInodeValue") && pid >= 1;
    hostdlp::recordCall(inodeCall("putPendingInodeValue", inode, pid, stored ? 1 : 0));
    return stored;
}

extern "C" int getPidByInode(unsigned long inode) {
    std::map<unsigned long, int> pending = dlp_pending_inodes();
    auto it = pending.find(inode);
    int pid = it == pending.end() ? kNoPid : it->second;
    hostdlp::recordCall(inodeCall("getPidByInode", inode, kNoPid, pid));
    return pid;
}

extern "C" bool clearPendingInode(unsigned long inode) {
    bool cleared = !devprofile::shouldFail("clearPendingInode") && dlp_pending_inodes().count(inode) > 0;
    hostdlp::recordCall(inodeCall("clearPendingInode", inode, kNoPid, cleared ? 1 : 0));
    return cleared;
}

extern "C" int addOrUpdateMapEntry(int pid, char* path) {
    int result = devprofile::shouldFail("addOrUpdateMapEntry") || pid < 1 || !path ? -1 : 0;
    DlpCall call;
    call.function = "addOrUpdateMapEntry";
    call.pid = pid;
    call.path = path ? path : "";
    call.result = result;
    hostdlp::recordCall(call);
    return result;
}
