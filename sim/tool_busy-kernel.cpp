// busy-kernel: runs a command (on the device, pelkd) under a kernel that
// refuses to unmount a path while a process holds a file under it, as a
// busy mount is refused when it is not detached. This host's kernel detaches
// a busy mount at once; under busy-kernel a person can watch what the
// daemon does when an unmount fails: its tries, and the process killer
// reporting and signalling the holders between them.
//
//   busy-kernel PATH [PATH...] -- COMMAND [ARG...]
//
// Every umount2 of a PATH is answered EBUSY while a process has a
// descriptor open at or under it (per /proc/<pid>/fd); other calls, and the
// same call once the holders are gone, reach the kernel unchanged. SIGTERM
// and SIGINT are passed on to the command; the exit status is the command's
// (128 + the signal that ended it).
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "BusyKernel.h"

namespace {

volatile sig_atomic_t gCommand = 0;

void passOn(int signo) {
    if (gCommand > 0) kill(static_cast<pid_t>(gCommand), signo);
}

int usage() {
    fprintf(stderr, "usage: busy-kernel PATH [PATH...] -- COMMAND [ARG...]\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> paths;
    int i = 1;
    for (; i < argc && strcmp(argv[i], "--") != 0; ++i) paths.emplace_back(argv[i]);
    if (paths.empty() || i + 1 >= argc) return usage();
    char** command = argv + i + 1;

    struct sigaction action = {};
    action.sa_handler = passOn;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);

    int result = sim::runWithBusyKernel(
        [command] {
            signal(SIGTERM, SIG_DFL);
            signal(SIGINT, SIG_DFL);
            execvp(command[0], command);
            perror("busy-kernel: exec");
            return 127;
        },
        [&paths](const std::string& target) {
            for (const std::string& path : paths) {
                if (target == path) return sim::heldUnder(path);
            }
            return false;
        },
        [](pid_t child) { gCommand = child; });
    if (result < 0) {
        fprintf(stderr, "busy-kernel: cannot stand between %s and the kernel\n", command[0]);
        return 1;
    }
    return result;
}
