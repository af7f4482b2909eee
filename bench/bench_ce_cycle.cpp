// One mount + unmount cycle of a container's CE storage (four areas, the
// emulated storage's three views included, no app holding anything), as the
// daemon runs it on a device without file-based encryption: the reaper thread
// runs, each CE mount starts a remount worker and each teardown an unmount
// worker, and the next mount or teardown first waits until the reaper has
// taken the previous worker away.
//
// The cycle's time is split three ways:
//   - the sdcard program, timed on its own in the same run (the engine's
//     fork, exec and wait for it, with the same argument vector, views
//     taken down again untimed);
//   - the engine: the cycle minus that;
//   - the waits for the previous worker (the engine's deliberate sleeps:
//     one-second polls against the reaper's five-second pass), kept out of
//     the cycle's time. They are timed in a second round at a time scale
//     where the cycle's own few milliseconds are small beside the scaled
//     reaper period (at the first round's scale they are not, and the waits
//     would read short), then given back at scale 1.
#include <devprofile/DeviceProfile.h>
#include <log/log_records.h>
#include <persona/persona.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Sandbox.h"
#include "SdcardRecords.h"
#include "WalkBench.h"
#include "manager/Pelk.h"
#include "partition/Partition.h"

namespace {

constexpr int kUser = 10;
constexpr int kRuns = 21;
constexpr double kTimeScale = 0.001;
constexpr int kWaitRuns = 7;
constexpr double kWaitScale = 0.05;

struct Key {
    Key() {
        // Any 32 bytes will do for timing; the first cycle records their check values.
        for (int i = 0; i < 32; ++i) data[i] = static_cast<char>('A' + i);
        data[32] = 0;
    }
    char data[33];
};

bool makeAreas() {
    for (int32_t type : Partition::LIST_CE_STORAGE) {
        Partition area(kUser, type, nullptr, true);
        if (walkbench::runQuiet({"mkdir", "-p", area.mSrcPath, area.mMntPath}) != 0) return false;
    }
    return true;
}

int mountedCount(const std::vector<std::string>& points) {
    int count = 0;
    for (const std::string& p : points) count += isMountedPath(p.c_str()) == 1;
    return count;
}

// What a cycle mounts: the four areas and the sdcard program's views.
std::vector<std::string> cyclePoints(const sim::SdcardRun& run) {
    std::vector<std::string> points(run.views);
    for (int32_t type : Partition::LIST_CE_STORAGE) points.push_back(Partition(kUser, type, nullptr, true).mMntPath);
    return points;
}

// The sdcard program as the engine runs it: fork, exec, wait.
double sdcardAlone(const sim::SdcardRun& run) {
    std::vector<char*> argv;
    for (const std::string& a : run.argv) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    double took = walkbench::seconds([&] {
        pid_t pid = fork();
        if (pid == 0) {
            execv(argv[0], argv.data());
            _exit(127);
        }
        waitpid(pid, nullptr, 0);
    });
    for (const std::string& view : run.views) umount2(view.c_str(), MNT_DETACH);
    return took;
}

}  // namespace

int main() {
    if (sim::enterSandbox() != 0) return 1;
    setenv("ANDROID_LOG_TAGS", "*:s", 1);
    devprofile::set("fbe", "0");
    devprofile::set("user.10", "zanth");
    devprofile::set("time.scale", std::to_string(kTimeScale));
    if (!makeAreas()) {
        fprintf(stderr, "cannot make the CE areas\n");
        return 1;
    }
    Pelk pelk(getpid());
    Pelk::runClearChildThread();
    Key key;

    // The first cycle records the key's check values; it also shows the
    // cycle does the whole job.
    sim::sdcardClear();
    if (pelk.mountStorageCe(kUser, key.data, true, true, true) != 0) return 1;
    std::vector<sim::SdcardRun> runs = sim::sdcardRuns();
    if (runs.size() != 1 || runs[0].status != 0) {
        fprintf(stderr, "the sdcard program did not run once\n");
        return 1;
    }
    std::vector<std::string> points = cyclePoints(runs[0]);
    int upAfterMount = mountedCount(points);
    Pelk::waitForThreadAvailable(kUser);
    if (pelk.unmountStorageCe(kUser) != 0) return 1;
    int upAfterUnmount = mountedCount(points);
    printf("a cycle mounts %d of %zu points (4 areas + %zu views) and leaves %d\n", upAfterMount, points.size(),
           runs[0].views.size(), upAfterUnmount);
    if (upAfterMount != static_cast<int>(points.size()) || upAfterUnmount != 0) return 1;

    std::vector<double> cycle, mountPart, unmountPart, sdcard;
    for (int run = 0; run < kRuns; ++run) {
        liblog_clear();
        sim::sdcardClear();
        Pelk::waitForThreadAvailable(kUser);
        double m = walkbench::seconds([&] { pelk.mountStorageCe(kUser, key.data, true, true, true); });
        Pelk::waitForThreadAvailable(kUser);
        double u = walkbench::seconds([&] { pelk.unmountStorageCe(kUser); });
        cycle.push_back(m + u);
        mountPart.push_back(m);
        unmountPart.push_back(u);
        sdcard.push_back(sdcardAlone(runs[0]));
    }

    devprofile::set("time.scale", std::to_string(kWaitScale));
    std::vector<double> waits;
    for (int run = 0; run < kWaitRuns; ++run) {
        double waited = walkbench::seconds([] { Pelk::waitForThreadAvailable(kUser); });
        pelk.mountStorageCe(kUser, key.data, true, true, true);
        waited += walkbench::seconds([] { Pelk::waitForThreadAvailable(kUser); });
        pelk.unmountStorageCe(kUser);
        waits.push_back(waited);
    }

    double c = walkbench::median(cycle), s = walkbench::median(sdcard), w = walkbench::median(waits);
    // No standard tool does the whole cycle; the one program it runs is the
    // yardstick, so the ratio says how many times that program's cost it is.
    walkbench::summary("CE mount + unmount cycle", c * 1e3, "ms", "sdcard program", s * 1e3);
    printf("CE cycle (mount + unmount), median of %d:  %8.3f ms  (mount %.3f ms, unmount %.3f ms)\n", kRuns, c * 1e3,
           walkbench::median(mountPart) * 1e3, walkbench::median(unmountPart) * 1e3);
    printf("  sdcard program, start to ready:      %8.3f ms  (%.0f%%)\n", s * 1e3, c > 0 ? 100 * s / c : 0);
    printf("  engine (cycle minus the program):    %8.3f ms  (%.0f%%)\n", (c - s) * 1e3, c > 0 ? 100 * (c - s) / c : 0);
    printf("waits for the previous worker, per back-to-back cycle: %.1f ms at time scale %g, about %.1f s at scale 1\n",
           w * 1e3, kWaitScale, w / kWaitScale);
    return 0;
}
