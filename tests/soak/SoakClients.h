// The soak's callers: how many lines a run sends (SOAK_SCALE), pelkctl runs
// that work through a file of lines in the background, and the counting of
// their replies.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "Sandbox.h"
#include "base/UniqueFd.h"
#include "e2e/Daemon.h"
#include "support/Files.h"

namespace soak {

// "full" sends the full counts (100,000 lines over "pelk", 10,000 over
// "ppm"); anything else, or nothing, a short run of a hundredth of them.
inline bool fullScale() {
    const char* scale = getenv("SOAK_SCALE");
    return scale && strcmp(scale, "full") == 0;
}

inline int scaled(int fullCount) { return fullScale() ? fullCount : fullCount / 100; }

// One pelkctl run whose standard input is a file of lines and whose
// standard output goes to a file, so any number of lines can be sent
// without a pipe to keep drained.
class BackgroundCtl {
public:
    BackgroundCtl(const std::vector<std::string>& args, const std::string& inputPath, const std::string& outputPath)
        : mOutputPath(outputPath) {
        pelk::UniqueFd in(open(inputPath.c_str(), O_RDONLY | O_CLOEXEC));
        pelk::UniqueFd out(open(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        if (!in.ok() || !out.ok()) return;
        mPid = fork();
        if (mPid == 0) {
            dup2(in.get(), 0);
            dup2(out.get(), 1);
            e2e::execPelkctl(args);
        }
    }
    ~BackgroundCtl() {
        if (mPid > 0 && mStatus < 0) {
            kill(mPid, SIGKILL);
            wait();
        }
    }
    BackgroundCtl(const BackgroundCtl&) = delete;
    BackgroundCtl& operator=(const BackgroundCtl&) = delete;

    bool started() const { return mPid > 0; }
    // pelkctl's exit status (2: usage or connection error, the daemon gone).
    int wait() {
        int status = 0;
        if (mStatus < 0 && mPid > 0 && waitpid(mPid, &status, 0) == mPid)
            mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return mStatus;
    }
    std::vector<std::string> replies() const { return testfs::lines(testfs::readFile(mOutputPath)); }

private:
    std::string mOutputPath;
    pid_t mPid = -1;
    int mStatus = -1;
};

// Writes lines (one per entry) to path.
inline bool writeLines(const std::string& path, const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return testfs::writeFile(path, text);
}

// What is wrong with a client's replies, given that it sent `sent` lines
// numbered 1..sent: every one must be answered exactly once, and nothing
// else may come ("" when all is well).
inline std::string replyProblems(const std::vector<std::string>& replies, int sent) {
    std::map<int, int> answered;
    std::string problems;
    for (const std::string& reply : replies) {
        int code = 0;
        int seq = 0;
        if (sscanf(reply.c_str(), "%d %d", &code, &seq) != 2 || code < 200 || code >= 600 || seq < 1 || seq > sent) {
            problems += "unexpected reply \"" + reply + "\"; ";
            continue;
        }
        if (++answered[seq] == 2) problems += "line " + std::to_string(seq) + " answered twice; ";
    }
    if (static_cast<int>(answered.size()) != sent)
        problems += std::to_string(sent - static_cast<int>(answered.size())) + " lines unanswered; ";
    return problems;
}

}  // namespace soak
