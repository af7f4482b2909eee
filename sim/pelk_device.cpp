// pelk-device [--state DIR] [-- CMD ...]
// Boots the simulated device and runs CMD inside it (default: an interactive
// shell), then shuts the device down with everything that ran in it.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Sandbox.h"

static int usage() {
    fprintf(stderr, "usage: pelk-device [--state DIR] [-- CMD ...]\n");
    return 2;
}

int main(int argc, char** argv) {
    sim::SandboxOptions options;
    int i = 1;
    for (; i < argc; ++i) {
        if (strcmp(argv[i], "--state") == 0 && i + 1 < argc) {
            char real[4096] = {0};
            std::string dir = argv[++i];
            if (realpath(dir.c_str(), real)) dir = real;
            options.stateDir = dir;
        } else if (strcmp(argv[i], "--") == 0) {
            ++i;
            break;
        } else {
            return usage();
        }
    }
    std::vector<char*> command;
    for (; i < argc; ++i) command.push_back(argv[i]);
    static char shell[] = "/bin/bash";
    if (command.empty()) command.push_back(shell);
    command.push_back(nullptr);

    if (sim::enterSandbox(options) != 0) return 1;
    setenv("PS1", "device:\\w# ", 1);
    setenv("HOME", "/data/local/tmp", 1);
    execvp(command[0], command.data());
    fprintf(stderr, "pelk-device: cannot run %s: %s\n", command[0], strerror(errno));
    return 127;
}
