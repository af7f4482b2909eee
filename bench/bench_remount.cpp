// Giving 300 app processes a container's emulated storage inside their own
// mount namespaces (remountProcesses) against the standard tool doing the
// same job in the same run: a loop of
//   nsenter -t PID -m mount --bind SRC /storage/emulated/10
// over the same processes, SRC being the view source of each. Taking it away
// again (unmountProcesses against "nsenter -t PID -m umount -l") is reported
// too. The apps are the zygote stand-in's: user 0, each in a namespace of its
// own, the three views in turn, so every walk binds all three sources.
#include <log/log_records.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "AppProcess.h"
#include "Sandbox.h"
#include "WalkBench.h"
#include "manager/Pelk.h"

namespace {

constexpr int kApps = 300;
constexpr int kUser = 10;
constexpr int kRuns = 7;
const char kTarget[] = "/storage/emulated/10";

struct App {
    std::unique_ptr<sim::AppProcess> process;
    std::string source;  // what the engine must bind on kTarget for its view
};

std::vector<App> startApps() {
    const std::pair<sim::StorageView, const char*> views[] = {
        {sim::StorageView::Default, "/mnt/zanth/default/emulated/10"},
        {sim::StorageView::Read, "/mnt/zanth/read/emulated/10"},
        {sim::StorageView::Write, "/mnt/zanth/write/emulated/10"}};
    std::vector<App> apps;
    for (int i = 0; i < kApps; ++i) {
        sim::AppOptions options;
        options.userId = 0;
        options.appId = 10000 + i;
        options.view = views[i % 3].first;
        App app{std::make_unique<sim::AppProcess>(options), views[i % 3].second};
        if (!app.process->started()) {
            fprintf(stderr, "app %d: %s\n", i, app.process->error().c_str());
            exit(1);
        }
        apps.push_back(std::move(app));
    }
    return apps;
}

// The root (as mountinfo shows it) of the mount on kTarget in the process's
// namespace, "" when nothing is mounted there.
std::string targetRoot(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/mountinfo");
    std::string root;
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        std::string id, parent, dev, lineRoot, point;
        fields >> id >> parent >> dev >> lineRoot >> point;
        if (point == kTarget) root = lineRoot;  // the last one is what the process sees
    }
    return root;
}

// Every app sees its own view's source on kTarget (mounted true), or none
// sees anything there (mounted false). /mnt is one filesystem, so a source
// "/mnt/X" shows the root "/X".
bool allApps(const std::vector<App>& apps, bool mounted) {
    for (const App& app : apps) {
        std::string want = mounted ? app.source.substr(4) : "";
        if (targetRoot(app.process->pid()) != want) {
            fprintf(stderr, "pid %d: \"%s\" on %s, expected \"%s\"\n", app.process->pid(),
                    targetRoot(app.process->pid()).c_str(), kTarget, want.c_str());
            return false;
        }
    }
    return true;
}

void nsenterBindAll(const std::vector<App>& apps) {
    for (const App& app : apps) {
        walkbench::runQuiet({"nsenter", "-t", app.process->pidText(), "-m", "mount", "--bind", app.source, kTarget});
    }
}

void nsenterUnmountAll(const std::vector<App>& apps) {
    for (const App& app : apps) {
        walkbench::runQuiet({"nsenter", "-t", app.process->pidText(), "-m", "umount", "-l", kTarget});
    }
}

bool makeSources() {
    for (const char* view : {"default", "read", "write"}) {
        std::string dir = std::string("/mnt/zanth/") + view + "/emulated/10";
        if (walkbench::runQuiet({"mkdir", "-p", dir}) != 0) return false;
    }
    // The apps' "/storage/emulated" is the daemon's: the mount point shows in all of them.
    return mkdir(kTarget, 0770) == 0;
}

}  // namespace

int main() {
    if (sim::enterSandbox() != 0) return 1;
    // The engine still records every line; only the stderr echo is silenced.
    setenv("ANDROID_LOG_TAGS", "*:s", 1);
    if (!makeSources()) {
        perror("making the view sources");
        return 1;
    }
    std::vector<App> apps = startApps();
    Pelk pelk(getpid());

    // Both sides must do the whole job, and the same job.
    pelk.remountProcesses(0, kUser);
    bool engineRight = allApps(apps, true);
    pelk.unmountProcesses(0, kTarget);
    bool engineUndone = allApps(apps, false);
    nsenterBindAll(apps);
    bool toolRight = allApps(apps, true);
    nsenterUnmountAll(apps);
    bool toolUndone = allApps(apps, false);
    printf("apps: %d of user 0, each in its own mount namespace; every view right: engine %s/%s, nsenter %s/%s\n",
           kApps, engineRight ? "yes" : "NO", engineUndone ? "yes" : "NO", toolRight ? "yes" : "NO",
           toolUndone ? "yes" : "NO");
    if (!engineRight || !engineUndone || !toolRight || !toolUndone) return 1;

    walkbench::Sample bind, unbind;
    std::vector<double> nothingToDo;
    for (int run = 0; run < kRuns; ++run) {
        liblog_clear();
        bind.engine.push_back(walkbench::seconds([&] { pelk.remountProcesses(0, kUser); }));
        // The same walk once every app has the storage: reading /proc alone.
        nothingToDo.push_back(walkbench::seconds([&] { pelk.remountProcesses(0, kUser); }));
        unbind.engine.push_back(walkbench::seconds([&] { pelk.unmountProcesses(0, kTarget); }));
        bind.tool.push_back(walkbench::seconds([&] { nsenterBindAll(apps); }));
        unbind.tool.push_back(walkbench::seconds([&] { nsenterUnmountAll(apps); }));
    }
    walkbench::report("bind in 300 app namespaces", "nsenter mount", bind);
    walkbench::report("detach in 300 app namespaces", "nsenter umount", unbind);
    printf("the remount walk when every app already has it: %.3f ms\n", walkbench::median(nothingToDo) * 1e3);
    return 0;
}
