#include "support/Holders.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "process/ProcessKiller.h"

namespace holders {
namespace {

void sleepMs(int ms) {
    timespec ts{ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&ts, nullptr);
}

std::string cmdlineOf(pid_t pid) {
    char name[4096];
    ProcessKiller::getProcessName(pid, name, sizeof(name));
    return name;
}

}  // namespace

Holder::Holder(const std::function<bool()>& grab) {
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
        close(pipeFds[0]);
        char ok = grab() ? 1 : 0;
        if (write(pipeFds[1], &ok, 1) != 1) _exit(3);
        close(pipeFds[1]);
        for (;;) pause();
    }
    close(pipeFds[1]);
    char ok = 0;
    ready_ = pid_ > 0 && read(pipeFds[0], &ok, 1) == 1 && ok == 1;
    close(pipeFds[0]);
}

Holder::Holder(const std::function<bool()>& grab, const char* program, const char* name, const char* arg) {
    pid_ = fork();
    if (pid_ == 0) {
        if (!grab()) _exit(2);
        execl(program, name, arg, static_cast<char*>(nullptr));
        _exit(127);
    }
    for (int i = 0; i < 500 && pid_ > 0; ++i) {
        if (cmdlineOf(pid_) == name) {
            ready_ = true;
            break;
        }
        sleepMs(2);
    }
}

Holder::~Holder() {
    if (pid_ <= 0 || reaped_) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

bool Holder::alive() const {
    if (pid_ <= 0 || reaped_) return false;
    std::ifstream status("/proc/" + std::to_string(pid_) + "/stat");
    std::string pidText, comm, state;
    status >> pidText >> comm >> state;
    return status && state != "Z" && state != "X";
}

int Holder::reap(int ms) {
    if (pid_ <= 0 || reaped_) return -1;
    for (int waited = 0;; waited += 5) {
        int status = 0;
        pid_t r = waitpid(pid_, &status, WNOHANG);
        if (r == pid_) {
            reaped_ = true;
            return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
        }
        if (r < 0 || waited >= ms) return -1;
        sleepMs(5);
    }
}

std::string forkedChildName() { return cmdlineOf(getpid()); }

bool writeFile(const std::string& path, size_t size) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
        mkdir(path.substr(0, slash).c_str(), 0755);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << std::string(size, 'x');
    return static_cast<bool>(out);
}

}  // namespace holders
