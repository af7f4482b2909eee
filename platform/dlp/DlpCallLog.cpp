// Record lines: function, pid, inode, user, value, result and path, separated
// by tabs; the path escaped (a path may hold tabs and newlines).
#include "DlpCallLog.h"

#include <log/record_file.h>
#include <stdlib.h>

#include <cerrno>
#include <string>
#include <utility>

namespace hostdlp {
namespace {

constexpr size_t kFields = 7;

hostlog::RecordFile& calls() {
    static auto* file = new hostlog::RecordFile("/sim/log/dlp_calls");
    return *file;
}

}  // namespace

void recordCall(const DlpCall& call) {
    int saved = errno;
    std::string line = call.function;
    line += '\t' + std::to_string(call.pid) + '\t' + std::to_string(call.inode) + '\t' + std::to_string(call.userId) +
            '\t' + std::to_string(call.value) + '\t' + std::to_string(call.result) + '\t' +
            hostlog::escapeField(call.path) + '\n';
    calls().append(line);
    errno = saved;
}

std::vector<DlpCall> readCalls() {
    std::vector<DlpCall> out;
    for (const std::string& text : hostlog::splitLines(calls().readAll())) {
        std::vector<std::string> f = hostlog::splitFields(text);
        if (f.size() != kFields) continue;
        DlpCall call;
        call.function = f[0];
        call.pid = atoi(f[1].c_str());
        call.inode = strtoul(f[2].c_str(), nullptr, 10);
        call.userId = atoi(f[3].c_str());
        call.value = strtol(f[4].c_str(), nullptr, 10);
        call.result = strtol(f[5].c_str(), nullptr, 10);
        call.path = hostlog::unescapeField(f[6]);
        out.push_back(call);
    }
    return out;
}

}  // namespace hostdlp

std::vector<DlpCall> dlp_calls() { return hostdlp::readCalls(); }

std::vector<DlpCall> dlp_calls(const std::string& function) {
    std::vector<DlpCall> out;
    for (DlpCall& call : hostdlp::readCalls())
        if (call.function == function) out.push_back(std::move(call));
    return out;
}

void dlp_calls_clear() { hostdlp::calls().clear(); }
