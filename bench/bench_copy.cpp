// A whole-tree copy through the host copy engine against "cp -a" of the same
// tree in the same run. Both sides copy the same source to a fresh target;
// the target is removed (untimed) before the next run.
#include <fileops/CopyFileImpl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "Sandbox.h"
#include "WalkBench.h"

namespace {
const char kSource[] = "/data/bench_copy_src";
const char kTarget[] = "/data/bench_copy_dst";
constexpr int kRuns = 5;

bool removeTarget() { return walkbench::runQuiet({"rm", "-rf", kTarget}) == 0 && access(kTarget, F_OK) != 0; }
}  // namespace

int main() {
    if (sim::enterSandbox() != 0) return 1;
    setenv("ANDROID_LOG_TAGS", "*:s", 1);
    long entries = walkbench::makeTree(kSource, 10, 20, 250);
    CopyFileImpl engine;
    std::string src = kSource;
    std::string dst = kTarget;

    walkbench::Sample sample;
    for (int run = 0; run < kRuns; ++run) {
        int result = 0;
        sample.engine.push_back(walkbench::seconds([&] { result = engine.CopyCommand(&src[0], 0, &dst[0], 10, 0); }));
        // Once, untimed: the engine's copy must match the source entry for entry.
        if (run == 0 && walkbench::runQuiet({"diff", "-r", "--no-dereference", kSource, kTarget}) != 0) {
            fprintf(stderr, "the engine's copy differs from its source\n");
            return 1;
        }
        if (result != 0 || !removeTarget()) {
            fprintf(stderr, "the engine's copy failed (%d)\n", result);
            return 1;
        }
        sample.tool.push_back(walkbench::seconds([] { walkbench::runQuiet({"cp", "-a", kSource, kTarget}); }));
        if (!removeTarget()) return 1;
    }
    printf("tree: %ld entries, a quarter of the files 5000 bytes\n", entries);
    walkbench::report("copy a 50k-entry tree", "cp -a", sample);
    return 0;
}
