// Changing the owner of a 200,000-entry tree with chown_recursive against
// chown -R, on the same tree in the same run, inside the device sandbox.
// The two sides take turns and each run gives the tree to a new owner, so
// neither side meets a tree that already has the owner it sets.
//
// The engine logs one DEBUG line per entry, which the simulated device's
// liblog appends to two shared files; the same number of lines is also
// timed alone, so the walk can be compared without the log's cost.
#include <log/log.h>
#include <log/log_records.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>

#include "Sandbox.h"
#include "WalkBench.h"
#include "tools/Chown.h"

namespace {
const char kTree[] = "/data/bench_chown";
constexpr int kRuns = 5;

bool ownedBy(const std::string& path, unsigned int uid) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0 && st.st_uid == uid;
}
// As many lines as the walk logs, each with a path of the tree's depth.
double logLinesAlone(long count) {
    return walkbench::seconds([count] {
        for (long i = 0; i < count; ++i) {
            __android_log_print(ANDROID_LOG_DEBUG, "pelkd", "chown_recursive %s/d7/s3/file%ld", kTree, i % 500);
        }
    });
}
}  // namespace

int main() {
    if (sim::enterSandbox() != 0) return 1;
    setenv("ANDROID_LOG_TAGS", "*:s", 1);
    long entries = walkbench::makeTree(kTree, 20, 20, 500);
    const std::string sample = std::string(kTree) + "/d7/s3/file9";

    walkbench::Sample times;
    unsigned int owner = 2000;
    for (int run = 0; run < kRuns; ++run, owner += 2) {
        int result = -1;
        times.engine.push_back(walkbench::seconds([&] { result = chown_recursive(kTree, owner, owner); }));
        liblog_clear();  // the records of one run need not pile up in memory
        if (result != 0 || !ownedBy(sample, owner)) {
            fprintf(stderr, "chown_recursive did not change the tree (%d)\n", result);
            return 1;
        }
        std::string ownerWord = std::to_string(owner + 1) + ":" + std::to_string(owner + 1);
        times.tool.push_back(walkbench::seconds([&] { walkbench::runQuiet({"chown", "-R", ownerWord, kTree}); }));
        if (!ownedBy(sample, owner + 1)) return 1;
    }
    printf("tree: %ld entries\n", entries);
    walkbench::report("chown a 200k-entry tree", "chown -R", times);

    std::vector<double> logging;
    for (int run = 0; run < kRuns; ++run) {
        logging.push_back(logLinesAlone(entries));
        liblog_clear();
    }
    double log = walkbench::median(logging);
    walkbench::Sample walkOnly = times;
    for (double& t : walkOnly.engine) t = t > log ? t - log : 0;
    printf("%-34s %9.3f ms (median of %d)\n", "  of which the per-entry log lines", log * 1e3, kRuns);
    walkbench::report("  the walk without its log lines", "chown -R", walkOnly);
    return 0;
}
