// One container's "unmount" (the CE teardown, then DE) while 50 of its app
// processes, each in its own mount namespace with the "/storage" view, hold
// a file open in its CE data area. Timed in the engine's own process as
// pelkd runs it, in two parts: the calls themselves (every area detached,
// holders dealt with should a detach fail) and the user's worker that looks
// for the container's emulated view in each of its apps' namespaces and
// takes it away. The report says what one run found to do: on this host the
// busy areas detach at once (no holder is signalled) and the container's
// apps see its storage through their "/storage" bind, with no view of its
// own to detach. The standard tools doing the same job in the same run:
// nsenter -m umount -l of the view in each app's namespace that has it, then
// umount -l of each area. The report adds what the engine's deliberate
// sleeps would cost at time scale 1.
#include <fcntl.h>
#include <log/log.h>
#include <log/log_records.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <mutex>
#include <string>
#include <vector>

#include "AppProcess.h"
#include "ContainerBench.h"
#include "Sandbox.h"
#include "WalkBench.h"
#include "base/FileIo.h"
#include "base/Secret.h"
#include "base/UniqueFd.h"
#include "keystore/QuarnHelper.h"
#include "partition/Partition.h"

namespace {

constexpr int kUser = containerbench::kFirstUser;
constexpr int kHolders = 50;
constexpr int kRuns = 5;
constexpr double kScale = 0.001;
const char kHeld[] = "/data/user/10";

// Waits for the user's worker (if one was started) and forgets it.
void waitForWorker() {
    pid_t worker = 0;
    {
        std::lock_guard<std::mutex> guard(Pelk::remountChildListLock);
        auto it = Pelk::remountChildList.find(kUser);
        if (it != Pelk::remountChildList.end()) worker = it->second;
    }
    if (worker > 0) waitpid(worker, nullptr, 0);
    Pelk::clearChildList();
}

// Mounts the container: DE and CE as a boot's pre-mount does, then CE once
// more as "mount <user> <key> 1 1" does it (with the views of its emulated
// storage, which the pre-mount leaves out); then starts the holders.
std::vector<pid_t> mountAndHold(Pelk& pelk) {
    liblog_clear();
    pelk.preMount();
    waitForWorker();
    pelk.unmountStorageCe(kUser);
    waitForWorker();
    pelk::SecretBuffer<33> ce;
    bool isRaw = false;
    if (pelk.getFEKEK(kUser, ce.chars(), &isRaw, kQuarnKeyCe) != 0 ||
        pelk.mountStorageCe(kUser, ce.chars(), isRaw, true, true) != 0) {
        fprintf(stderr, "bench_unmount_holders: the container did not mount\n");
        for (const LogRecord& r : liblog_records())
            if (r.priority >= ANDROID_LOG_WARN) fprintf(stderr, "  %s: %s\n", r.tag.c_str(), r.text.c_str());
        exit(1);
    }
    waitForWorker();
    std::vector<pid_t> holders;
    for (int i = 0; i < kHolders; ++i) {
        std::string file = std::string(kHeld) + "/held" + std::to_string(i);
        walkbench::runQuiet({"sh", "-c", "echo data > " + file + " && chmod 0644 " + file});
        sim::AppOptions app;
        app.userId = kUser;
        app.appId = 10100 + i;
        app.name = "com.example.holder" + std::to_string(i);
        app.command = {"sh", "-c", "exec 3<" + file + "; exec sleep 600"};
        std::string error;
        pid_t pid = sim::startApp(app, &error);
        if (pid > 0)
            holders.push_back(pid);
        else
            fprintf(stderr, "bench_unmount_holders: holder %d did not start: %s\n", i, error.c_str());
    }
    usleep(100000);  // every shell has opened its file and become sleep
    return holders;
}

// Kills and reaps what is left of the holders; answers how many had ended.
int endHolders(const std::vector<pid_t>& holders) {
    int gone = 0;
    for (pid_t pid : holders) {
        if (waitpid(pid, nullptr, WNOHANG) == pid) {
            ++gone;
            continue;
        }
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    return gone;
}

struct Timed {
    containerbench::Measured call;    // until unmountStorageCe and unmountStorageDe returned
    containerbench::Measured worker;  // until the namespace worker had finished too
};

// Records whose text starts with `start`, since the last liblog_clear.
int recordsStartingWith(const char* start) {
    int n = 0;
    for (const LogRecord& r : liblog_records()) n += r.text.rfind(start, 0) == 0 ? 1 : 0;
    return n;
}

Timed unmountOnce(Pelk& pelk, int* ended) {
    containerbench::forgetEarlierBoots();
    std::vector<pid_t> holders = mountAndHold(pelk);
    liblog_clear();
    Timed t{};
    t.worker = containerbench::measure([&] {
        t.call = containerbench::measure([&] { containerbench::tearDownContainer(pelk, kUser); });
        waitForWorker();
    });
    *ended = endHolders(holders);
    static bool told = false;
    if (!told) {
        told = true;
        printf(
            "  what one run did: %d worker walk(s), the view found in %d app namespaces and detached in %d;\n"
            "  %d holder(s) reported by the process killer\n",
            recordsStartingWith("Unmount /storage/emulated/"), recordsStartingWith("Found matching PID"),
            recordsStartingWith("Kick out"), recordsStartingWith("!@Process ") + recordsStartingWith("Process "));
    }
    return t;
}

std::vector<std::string> areaMountPoints() {
    std::vector<std::string> points;
    for (int32_t type : Partition::LIST_CE_STORAGE) points.push_back(Partition(kUser, type, nullptr, false).mMntPath);
    for (int32_t type : Partition::LIST_DE_STORAGE) points.push_back(Partition(kUser, type, nullptr, false).mMntPath);
    return points;
}

// Whether path is a mount point in the process's namespace, as its mount table says.
bool mountedIn(pid_t pid, const std::string& path) {
    std::string table;
    std::string mounts = "/proc/" + std::to_string(pid) + "/mounts";
    pelk::UniqueFd fd(open(mounts.c_str(), O_RDONLY | O_CLOEXEC));
    return fd.ok() && pelk::readAll(fd.get(), &table) && table.find(" " + path + " ") != std::string::npos;
}

// The same job with the standard tools: the emulated view detached in each
// holder's namespace that has it (the engine's worker looks at every one and
// detaches where it finds it), then every area of the container detached.
double unmountWithTools(Pelk& pelk) {
    std::vector<pid_t> holders = mountAndHold(pelk);
    const std::string view = "/storage/emulated/" + std::to_string(kUser);
    double t = walkbench::seconds([&] {
        for (pid_t pid : holders)
            if (mountedIn(pid, view))
                walkbench::runQuiet({"nsenter", "-t", std::to_string(pid), "-m", "umount", "-l", view});
        for (const auto& point : areaMountPoints()) walkbench::runQuiet({"umount", "-l", point});
    });
    endHolders(holders);
    pelk.updateStatusMap(kUser, false, true);
    return t;
}

}  // namespace

int main() {
    setenv("ANDROID_LOG_TAGS", "*:s", 1);  // the records are still kept
    if (sim::enterSandbox() != 0) return 1;
    containerbench::setUpDevice(kScale);
    Pelk pelk(getpid());
    if (!containerbench::provisionContainer(pelk, kUser)) {
        fprintf(stderr, "bench_unmount_holders: the container could not be provisioned\n");
        return 1;
    }
    int ended = 0;
    pelk.preMount();  // first boot of the container: its DE key is made
    containerbench::tearDownContainer(pelk, kUser);
    waitForWorker();

    std::vector<double> call, callSleeps, worker, workerSleeps;
    walkbench::Sample vsTools;
    for (int run = 0; run < kRuns; ++run) {
        Timed t = unmountOnce(pelk, &ended);
        call.push_back(t.call.seconds);
        callSleeps.push_back(t.call.sleepsAtScale1);
        worker.push_back(t.worker.seconds);
        workerSleeps.push_back(t.worker.sleepsAtScale1);
        vsTools.engine.push_back(t.worker.seconds);
        containerbench::forgetEarlierBoots();
        vsTools.tool.push_back(unmountWithTools(pelk));
    }
    printf("unmount of one container (CE then DE) while %d of its apps hold files in %s\n", kHolders, kHeld);
    printf("time scale %.3f; median of %d runs\n", kScale, kRuns);
    printf("  holders that had ended when a run was over: %d of %d\n", ended, kHolders);
    printf("  the calls return after      %8.2f ms; the sleeps asked for add %.3f s at scale 1\n",
           walkbench::median(call) * 1e3, walkbench::median(callSleeps));
    printf("  the namespace worker ends   %8.2f ms; with its sleeps %.3f s at scale 1\n",
           walkbench::median(worker) * 1e3, walkbench::median(workerSleeps));
    walkbench::report("unmount, 50 holders (all of it)", "nsenter+umount", vsTools);
    return 0;
}
