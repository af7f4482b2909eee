// Boot pre-mount of 1, 5 and 20 provisioned containers (no process holds
// anything), run in the engine's own process as pelkd runs it for
// "premount", against mount(8) making the same number of bind mounts in the
// same run. The report gives the cost per container, a straight-line fit of
// the cost against the count, the share of the key store (each container's
// CE and DE keys are unwrapped) and what the engine's deliberate sleeps
// would add at time scale 1.
//
// Optional arguments: the container counts to run instead of 1, 5 and 20.
#include <log/log.h>
#include <log/log_records.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "ContainerBench.h"
#include "Sandbox.h"
#include "WalkBench.h"
#include "base/Secret.h"
#include "keystore/QuarnHelper.h"

namespace {

constexpr int kRuns = 5;
constexpr double kScale = 0.001;

// One pre-mount of the containers provisioned so far, as a fresh boot; the
// storage is taken down again afterwards (not timed). *mounts gets the
// number of mounts it made. Exits when the pre-mount fails.
containerbench::Measured preMountOnce(Pelk& pelk, int count, int* mounts) {
    containerbench::forgetEarlierBoots();
    liblog_clear();
    int before = containerbench::mountCount();
    int rc = 0;
    containerbench::Measured m = containerbench::measure([&] { rc = pelk.preMount(); });
    *mounts = containerbench::mountCount() - before;
    if (rc != 0) {
        fprintf(stderr, "bench_premount: preMount answered %d\n", rc);
        for (const LogRecord& r : liblog_records())
            if (r.priority >= ANDROID_LOG_ERROR) fprintf(stderr, "  %s: %s\n", r.tag.c_str(), r.text.c_str());
        exit(1);
    }
    for (int i = 0; i < count; ++i) containerbench::tearDownContainer(pelk, containerbench::kFirstUser + i);
    return m;
}

// mount(8) binding `count` directories, timed, and umount(8) undoing it.
double bindMountsWithTool(int count) {
    std::vector<std::string> points;
    for (int i = 0; i < count; ++i) {
        points.push_back("/data/bench_bind" + std::to_string(i));
        mkdir(points.back().c_str(), 0755);
    }
    double t = walkbench::seconds([&] {
        for (const auto& dir : points) walkbench::runQuiet({"mount", "--bind", "/data/local", dir});
    });
    for (const auto& dir : points) walkbench::runQuiet({"umount", dir});
    return t;
}

// Milliseconds to unwrap one container's CE and DE keys, as the pre-mount does.
double keyUnwrapMs(Pelk& pelk) {
    std::vector<double> runs;
    for (int run = 0; run < kRuns * 4; ++run) {
        pelk::SecretBuffer<33> key;
        bool isRaw = false;
        runs.push_back(walkbench::seconds([&] {
            pelk.getFEKEK(containerbench::kFirstUser, key.chars(), &isRaw, kQuarnKeyCe);
            pelk.getDEKeyFromEDEK(containerbench::kFirstUser, key.chars(), false);
        }));
    }
    return walkbench::median(runs) * 1e3;
}

// Least-squares fit ms = fixed + linear * n + square * n^2 (three counts or
// more): the square term is what grows faster than the count.
void printFit(const std::vector<double>& counts, const std::vector<double>& ms) {
    if (counts.size() < 3) return;
    // Normal equations, solved by Cramer's rule.
    double s[5] = {0, 0, 0, 0, 0}, t[3] = {0, 0, 0};
    for (size_t i = 0; i < counts.size(); ++i) {
        double p = 1;
        for (int k = 0; k < 5; ++k, p *= counts[i]) {
            s[k] += p;
            if (k < 3) t[k] += p * ms[i];
        }
    }
    auto det = [](double a, double b, double c, double d, double e, double f, double g, double h, double i) {
        return a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g);
    };
    double d = det(s[0], s[1], s[2], s[1], s[2], s[3], s[2], s[3], s[4]);
    if (d == 0) return;
    double fixed = det(t[0], s[1], s[2], t[1], s[2], s[3], t[2], s[3], s[4]) / d;
    double linear = det(s[0], t[0], s[2], s[1], t[1], s[3], s[2], t[2], s[4]) / d;
    double square = det(s[0], s[1], t[0], s[1], s[2], t[1], s[2], s[3], t[2]) / d;
    printf("growth: %.3f ms + %.3f ms x n + %.4f ms x n^2 (n containers)\n", fixed, linear, square);
    double n = counts.back();
    printf("  at n = %.0f: %.1f ms grow with the count, %.1f ms with its square\n", n, linear * n, square * n * n);
}

// Milliseconds one read of the mount table takes, as the engine reads it
// (through the C library), with the containers provisioned so far mounted;
// *lines gets the table's length then.
double mountTableReadMs(Pelk& pelk, int count, int* lines) {
    containerbench::forgetEarlierBoots();
    pelk.preMount();
    *lines = containerbench::mountCount();
    std::vector<double> runs;
    for (int run = 0; run < 50; ++run) {
        runs.push_back(walkbench::seconds([] {
            FILE* table = fopen("/proc/mounts", "re");
            char line[4096];
            while (table && fgets(line, sizeof(line), table)) {}
            if (table) fclose(table);
        }));
    }
    for (int i = 0; i < count; ++i) containerbench::tearDownContainer(pelk, containerbench::kFirstUser + i);
    return walkbench::median(runs) * 1e3;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<int> counts = {1, 5, 20};
    if (argc > 1) counts.clear();
    for (int i = 1; i < argc; ++i) counts.push_back(std::max(1, atoi(argv[i])));

    setenv("ANDROID_LOG_TAGS", "*:s", 1);  // the records are still kept
    if (sim::enterSandbox() != 0) return 1;
    containerbench::setUpDevice(kScale);
    mkdir("/data/local", 0755);
    Pelk pelk(getpid());

    printf("boot pre-mount, containers with CE and DE keys in the store, nothing holding them\n");
    printf("time scale %.3f; median of %d runs, each a fresh boot\n", kScale, kRuns);
    std::vector<double> xs, ys;
    int provisioned = 0;
    for (int count : counts) {
        for (; provisioned < count; ++provisioned) {
            if (!containerbench::provisionContainer(pelk, containerbench::kFirstUser + provisioned)) {
                fprintf(stderr, "bench_premount: a container could not be provisioned\n");
                return 1;
            }
        }
        int mounts = 0;
        preMountOnce(pelk, count, &mounts);  // first boot of the new ones: DE keys are made, not timed
        walkbench::Sample vsMount;
        std::vector<double> sleeps;
        for (int run = 0; run < kRuns; ++run) {
            containerbench::Measured m = preMountOnce(pelk, count, &mounts);
            vsMount.engine.push_back(m.seconds);
            sleeps.push_back(m.sleepsAtScale1);
            vsMount.tool.push_back(bindMountsWithTool(mounts));
        }
        char job[64];
        snprintf(job, sizeof(job), "pre-mount of %d (%d mounts)", count, mounts);
        walkbench::report(job, "mount --bind", vsMount);
        double ms = walkbench::median(vsMount.engine) * 1e3;
        printf("    %2d containers: %.2f ms per container; the sleeps asked for add %.3f s at scale 1\n", count,
               ms / count, walkbench::median(sleeps));
        xs.push_back(count);
        ys.push_back(ms);
    }
    printFit(xs, ys);
    int lines = 0;
    double readMs = mountTableReadMs(pelk, provisioned, &lines);
    printf("one read of the mount table with %d containers up (%d lines): %.3f ms\n", provisioned, lines, readMs);
    printf("unwrapping one container's CE and DE keys from the store: %.3f ms\n", keyUnwrapMs(pelk));
    return 0;
}
