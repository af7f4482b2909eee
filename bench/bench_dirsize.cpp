// Directory size walk against du -s -B1 on the same tree of 200,000+ entries
// inside the device sandbox.
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "Sandbox.h"
#include "WalkBench.h"
#include "partition/Partition.h"

namespace {
const char kTree[] = "/data/bench_dirsize";
constexpr int kRuns = 7;
}  // namespace

int main() {
    if (sim::enterSandbox() != 0) return 1;
    setenv("ANDROID_LOG_TAGS", "*:s", 1);

    long entries = walkbench::makeTree(kTree, 20, 20, 500);
    printf("tree: %ld entries under %s\n", entries, kTree);
    Partition area(0, kTree, kTree, false);

    std::string duOut;
    walkbench::runQuiet({"du", "-s", "-B1", kTree}, &duOut);
    unsigned long long engineBytes = area.getDirectorySize(kTree, 1);
    unsigned long long duBytes = strtoull(duOut.c_str(), nullptr, 10);
    printf("bytes: engine %llu, du %llu, same: %s\n", engineBytes, duBytes, engineBytes == duBytes ? "yes" : "no");

    walkbench::Sample sample;
    for (int run = 0; run < kRuns; ++run) {
        sample.engine.push_back(walkbench::seconds([&] { area.getDirectorySize(kTree, 1); }));
        sample.tool.push_back(walkbench::seconds([] { walkbench::runQuiet({"du", "-s", "-B1", kTree}); }));
    }
    walkbench::report("size of a 200k-entry tree", "du -s -B1", sample);
    return 0;
}
