// The host DLP library's one record of calls ("/sim/log/dlp_calls"), shared
// by every process of the device. The inode maps are replayed from it, so a
// pending inode stored by the daemon is the same one a test reads.
#pragma once

#include <dlp/dlp_records.h>

#include <vector>

namespace hostdlp {

// Appends one call; errno is kept, so a failing call's errno reaches its
// caller through the recording.
void recordCall(const DlpCall& call);
std::vector<DlpCall> readCalls();

}  // namespace hostdlp
