// Clearing and removing a tree of 200,000+ entries against rm -rf. Every run
// of either side gets a fresh copy of the same tree (rebuilt entry for entry
// by the same generator), inside the device sandbox.
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "Sandbox.h"
#include "WalkBench.h"
#include "partition/Partition.h"

namespace {
const char kCopy[] = "/data/bench_clear";
constexpr int kRuns = 5;

long freshCopy() { return walkbench::makeTree(kCopy, 20, 20, 500); }
}  // namespace

int main() {
    if (sim::enterSandbox() != 0) return 1;
    setenv("ANDROID_LOG_TAGS", "*:s", 1);
    Partition area(0, kCopy, kCopy, false);

    walkbench::Sample sample;
    long entries = 0;
    for (int run = 0; run < kRuns; ++run) {
        entries = freshCopy();
        int result = 0;
        sample.engine.push_back(walkbench::seconds([&] { result = area.clearDirectory(kCopy, 1, nullptr); }));
        if (result != 0 || access(kCopy, F_OK) == 0) {
            fprintf(stderr, "clearDirectory left the tree behind (%d)\n", result);
            return 1;
        }
        freshCopy();
        sample.tool.push_back(walkbench::seconds([] { walkbench::runQuiet({"rm", "-rf", kCopy}); }));
        if (access(kCopy, F_OK) == 0) return 1;
    }
    printf("tree: %ld entries, made afresh for every run\n", entries);
    walkbench::report("remove a 200k-entry tree", "rm -rf", sample);
    return 0;
}
