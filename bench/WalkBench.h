// Shared pieces of the walk benchmarks: timing, medians, running a standard
// tool quietly, and the report line that compares the two.
#pragma once

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace walkbench {

inline double seconds(const std::function<void()>& work) {
    auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    size_t n = v.size();
    return n == 0 ? 0 : (n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2);
}

// Runs argv[0] from the PATH with stdout and stderr sent to /dev/null
// (or stdout to `out` when given); answers the exit status or -1.
inline int runQuiet(const std::vector<std::string>& argv, std::string* out = nullptr) {
    int pipeFds[2] = {-1, -1};
    if (out && pipe2(pipeFds, O_CLOEXEC) != 0) return -1;
    pid_t pid = fork();
    if (pid == 0) {
        int null = open("/dev/null", O_WRONLY);
        dup2(out ? pipeFds[1] : null, 1);
        dup2(null, 2);
        std::vector<char*> args;
        for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    if (out) {
        close(pipeFds[1]);
        char buf[4096];
        ssize_t n;
        while ((n = read(pipeFds[0], buf, sizeof(buf))) > 0) out->append(buf, static_cast<size_t>(n));
        close(pipeFds[0]);
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct Sample {
    std::vector<double> engine;
    std::vector<double> tool;
};

// The machine-readable line of one comparison, which `make bench` gathers
// into its closing table (tools/bench-table). Both figures are costs in the
// same unit (time per job), so engine/tool below 1 means the engine is faster.
inline void summary(const char* job, double engine, const char* unit, const char* tool, double toolFigure) {
    printf("BENCH|%s|%.3f|%s|%s|%.3f\n", job, engine, unit, tool, toolFigure);
    fflush(stdout);
}

inline void report(const char* job, const char* tool, const Sample& s) {
    double e = median(s.engine), t = median(s.tool);
    summary(job, e * 1e3, "ms", tool, t * 1e3);
    printf("%-34s engine %9.3f ms | %-14s %9.3f ms | engine/tool %.2f  (median of %zu)\n", job, e * 1e3, tool, t * 1e3,
           t > 0 ? e / t : 0.0, s.engine.size());
    fflush(stdout);
}

// A tree of top x sub directories with `files` files each (plus a symbolic
// link per directory); one file in four holds a few kilobytes. Answers the
// number of entries made, directories included.
inline long makeTree(const std::string& root, int top, int sub, int files) {
    static const std::string payload(5000, 'p');
    long entries = 0;
    mkdir(root.c_str(), 0755);
    for (int t = 0; t < top; ++t) {
        std::string topDir = root + "/d" + std::to_string(t);
        mkdir(topDir.c_str(), 0755);
        ++entries;
        for (int s = 0; s < sub; ++s) {
            std::string dir = topDir + "/s" + std::to_string(s);
            mkdir(dir.c_str(), 0755);
            symlink("../..", (dir + "/up").c_str());
            entries += 2;
            for (int f = 0; f < files; ++f) {
                std::string file = dir + "/file" + std::to_string(f);
                int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
                if (fd < 0) continue;
                if (f % 4 == 0 && write(fd, payload.data(), payload.size()) < 0) perror("write");
                close(fd);
                ++entries;
            }
        }
    }
    return entries;
}

}  // namespace walkbench
