// The reverse holder walk (report only) against fuser -m and lsof on the same
// device: 500 sleeping processes, one in ten holding files on a small tmpfs.
// Everything runs inside the device sandbox, whose /proc shows only its own
// processes, so nothing outside it can be signalled.
#include <fcntl.h>
#include <log/log_records.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Sandbox.h"
#include "WalkBench.h"
#include "process/ProcessKiller.h"

namespace {

const char kHold[] = "/data/bench_killer";
constexpr int kProcesses = 500;
constexpr int kHolderEvery = 10;
constexpr int kRuns = 11;

std::vector<pid_t> spawnSleepers() {
    std::vector<pid_t> pids;
    for (int i = 0; i < kProcesses; ++i) {
        pid_t pid = fork();
        if (pid == 0) {
            if (i % kHolderEvery == 0) {
                std::string file = std::string(kHold) + "/f" + std::to_string(i % 20);
                open(file.c_str(), O_RDONLY);  // inherited across exec on purpose
                if (i % (kHolderEvery * 5) == 0 && chdir(kHold) != 0) _exit(1);
            }
            execl("/bin/sleep", "sleep", "600", static_cast<char*>(nullptr));
            _exit(127);
        }
        if (pid > 0) pids.push_back(pid);
    }
    return pids;
}

std::set<int> engineHolders() {
    std::set<int> pids;
    liblog_clear();
    ProcessKiller::KillProcessesWithOpenFilesViaReverse(kHold, 0);
    for (const LogRecord& r : liblog_records()) {
        size_t open = r.text.find(" (");
        if (r.text.rfind("!@Process ", 0) == 0 && open != std::string::npos)
            pids.insert(atoi(r.text.c_str() + open + 2));
    }
    return pids;
}

std::set<int> fuserHolders() {
    std::string out;
    walkbench::runQuiet({"fuser", "-m", kHold}, &out);
    std::set<int> pids;
    std::istringstream words(out);
    int pid;
    while (words >> pid) pids.insert(pid);
    return pids;
}

}  // namespace

int main() {
    if (sim::enterSandbox() != 0) return 1;
    // The engine still records every line; only the stderr echo is silenced.
    setenv("ANDROID_LOG_TAGS", "*:s", 1);

    mkdir(kHold, 0755);
    if (mount("tmpfs", kHold, "tmpfs", 0, "size=16m") != 0) {
        perror("mount tmpfs");
        return 1;
    }
    for (int i = 0; i < 20; ++i) walkbench::runQuiet({"touch", std::string(kHold) + "/f" + std::to_string(i)});

    std::vector<pid_t> sleepers = spawnSleepers();
    sleep(1);  // let every child reach its exec
    printf("processes: %zu sleeping (+ the bench), holders expected: %d\n", sleepers.size(), kProcesses / kHolderEvery);

    std::set<int> engine = engineHolders();
    std::set<int> fuser = fuserHolders();
    printf("holders found: engine %zu, fuser -m %zu, same set: %s\n", engine.size(), fuser.size(),
           engine == fuser ? "yes" : "no");

    walkbench::Sample vsFuser, vsLsof;
    std::vector<double> noHolders;
    for (int run = 0; run < kRuns; ++run) {
        noHolders.push_back(
            walkbench::seconds([] { ProcessKiller::KillProcessesWithOpenFilesViaReverse("/data/no_holders", 0); }));
        liblog_clear();
        double e = walkbench::seconds([] { ProcessKiller::KillProcessesWithOpenFilesViaReverse(kHold, 0); });
        vsFuser.engine.push_back(e);
        vsLsof.engine.push_back(e);
        vsFuser.tool.push_back(walkbench::seconds([] { walkbench::runQuiet({"fuser", "-m", kHold}); }));
        vsLsof.tool.push_back(walkbench::seconds([] { walkbench::runQuiet({"lsof", "-n", "-w", kHold}); }));
    }
    walkbench::report("holders of a mount, 500 processes", "fuser -m", vsFuser);
    walkbench::report("holders of a mount, 500 processes", "lsof", vsLsof);
    printf("the same walk for a path nobody holds: %.3f ms\n", walkbench::median(noHolders) * 1e3);

    for (pid_t pid : sleepers) kill(pid, SIGKILL);
    for (pid_t pid : sleepers) waitpid(pid, nullptr, 0);
    umount2(kHold, MNT_DETACH);
    return 0;
}
