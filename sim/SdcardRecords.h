// Host-only: the runs of the device's "/system/bin/sdcard" (sim/tool_sdcard.cpp).
// Every run appends one record to "/sim/log/sdcard" just before it exits, so
// a test that waited for the program (as the engine does) finds its record.
#pragma once

#include <string>
#include <vector>

namespace sim {

struct SdcardRun {
    std::vector<std::string> argv;   // the whole argument vector, argv[0] included
    int status;                      // the exit status: 0 views mounted, 1 refused or failed
    std::vector<std::string> views;  // the views it mounted, in order
    // The descriptors it inherited beyond 0, 1 and 2, each as
    // "<fd> <target>" with the target as /proc/self/fd shows it.
    std::vector<std::string> inheritedFds;
};

// Every run since the device was reset (or sdcardClear), oldest first.
std::vector<SdcardRun> sdcardRuns();
// Forgets the runs so far, for every process of the device.
void sdcardClear();
// Appends one run (used by the program itself).
void recordSdcardRun(const SdcardRun& run);

}  // namespace sim
