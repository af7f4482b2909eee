// zygote-sim: the simulated device's stand-in for the platform's zygote.
// Runs a command as an app process (sim/AppProcess.h):
//
//   zygote-sim [--user U] [--app A] [--view default|read|write|full|none]
//              [--shared-ns] [--groups G,G,...] [--name NAME] [--detach]
//              [--] COMMAND [ARG...]
//
// The command runs as uid and gid U * 100000 + A (defaults: user 0, app
// 10000) in a mount namespace of its own whose "/storage" is the chosen
// runtime view (default: "default"); --shared-ns keeps the caller's
// namespace, as a process beside the daemon has. NAME is the argv[0] the
// process shows (an app's package name, "system_server"). Shell is
// "--app 2000", system_server "--app 1000 --name system_server".
//
// Without --detach this process becomes the app (the caller's $! is its
// pid). With --detach it starts the app, prints its pid on a line of its
// own once the command runs, and exits 0.
//
// Exit status: 2 for a usage error, 1 when the app could not be set up
// (the reason on standard error); otherwise the command's own.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cerrno>
#include <string>
#include <vector>

#include "AppProcess.h"

namespace {

int usage() {
    fprintf(stderr,
            "usage: zygote-sim [--user U] [--app A] [--view default|read|write|full|none] [--shared-ns]\n"
            "                  [--groups G,G,...] [--name NAME] [--detach] [--] COMMAND [ARG...]\n");
    return 2;
}

bool parseNumber(const char* text, long low, long high, long* out) {
    char* end = nullptr;
    errno = 0;
    long value = strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < low || value > high) return false;
    *out = value;
    return true;
}

bool parseGroups(const char* text, std::vector<gid_t>* groups) {
    std::string list(text);
    size_t start = 0;
    for (;;) {
        size_t comma = list.find(',', start);
        long gid = 0;
        std::string word = list.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        if (!parseNumber(word.c_str(), 0, 0x7fffffff, &gid)) return false;
        groups->push_back(static_cast<gid_t>(gid));
        if (comma == std::string::npos) return true;
        start = comma + 1;
    }
}

}  // namespace

int main(int argc, char** argv) {
    sim::AppOptions options;
    bool detach = false;
    int i = 1;
    for (; i < argc && strncmp(argv[i], "--", 2) == 0; ++i) {
        std::string opt = argv[i];
        if (opt == "--") {
            ++i;
            break;
        }
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        long number = 0;
        if (opt == "--shared-ns") {
            options.ownMountNamespace = false;
        } else if (opt == "--detach") {
            detach = true;
        } else if (!value) {
            return usage();
        } else if (opt == "--user" && parseNumber(value, 0, 21473, &number)) {
            options.userId = static_cast<int>(number);
            ++i;
        } else if (opt == "--app" && parseNumber(value, 0, 99999, &number)) {
            options.appId = static_cast<int>(number);
            ++i;
        } else if (opt == "--view" && sim::parseStorageView(value, &options.view)) {
            ++i;
        } else if (opt == "--groups" && parseGroups(value, &options.groups)) {
            ++i;
        } else if (opt == "--name" && *value) {
            options.name = value;
            ++i;
        } else {
            return usage();
        }
    }
    for (; i < argc; ++i) options.command.push_back(argv[i]);
    if (options.command.empty()) return usage();

    std::string error;
    if (detach) {
        pid_t pid = sim::startApp(options, &error);
        if (pid > 0) {
            printf("%d\n", pid);
            return 0;
        }
    } else {
        sim::becomeApp(options, &error);
    }
    fprintf(stderr, "zygote-sim: %s\n", error.c_str());
    return 1;
}
