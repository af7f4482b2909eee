// Command round trips per second over the daemon's "pelk" socket against a
// bare Unix-socket echo server doing the same exchange, in the same run.
//
// The client sends "<seq> is_mounted 10\n" and waits for the NUL-ended
// reply, over and over on one connection. It passes the daemon's caller
// check honestly: this program re-executes itself as "zygote64" (root),
// which forks a child that re-executes itself as "system_server" and talks.
// The echo server sends each line back with its newline turned into a NUL,
// so both sides move the same bytes through the same kind of socket.
//
// Everything is measured twice. First with the scheduler free to place the
// processes: on a machine with idle cores each trip to the daemon then pays
// for waking a thread on another core, which costs more than the work. Then
// with every process of the exchange pinned to one core, which leaves only
// the work itself. In that second pass the client also times the log sink
// alone (the record the daemon writes for each command, logged from the
// client) and counts the records the daemon writes per command, so the
// daemon's extra time splits into the log sink's share and the engine's own.
#include <errno.h>
#include <fcntl.h>
#include <log/log.h>
#include <log/log_records.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Sandbox.h"
#include "WalkBench.h"
#include "base/UniqueFd.h"
#include "base/UniqueHandle.h"

namespace {

const char kRoleEnv[] = "BENCH_ROUNDTRIP_ROLE";
const char kOneCpuEnv[] = "BENCH_ROUNDTRIP_ONE_CPU";
const char kEchoName[] = "bench_echo";
constexpr int kTripsPerRun = 5000;
constexpr int kRuns = 7;
constexpr int kLogCallsPerRun = 5000;

sockaddr_un socketAddress(const std::string& name) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "/dev/socket/%s", name.c_str());
    return addr;
}

int connectTo(const std::string& name) {
    sockaddr_un addr = socketAddress(name);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0) return fd;
    if (fd >= 0) close(fd);
    return -1;
}

bool waitForSocket(const std::string& name) {
    for (int i = 0; i < 1000; ++i) {
        pelk::UniqueFd fd(connectTo(name));
        if (fd.ok()) return true;
        usleep(10000);
    }
    return false;
}

bool writeAll(int fd, const char* data, size_t len) {
    while (len > 0) {
        ssize_t n = write(fd, data, len);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

// ---- the echo server ----

[[noreturn]] void serveEcho() {
    sockaddr_un addr = socketAddress(kEchoName);
    unlink(addr.sun_path);
    pelk::UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (bind(listener.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || listen(listener.get(), 4) != 0)
        _exit(1);
    for (;;) {
        pelk::UniqueFd client(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!client.ok()) continue;
        char buf[4096];
        ssize_t n;
        while ((n = read(client.get(), buf, sizeof(buf))) > 0) {
            for (ssize_t i = 0; i < n; ++i) {
                if (buf[i] == '\n') buf[i] = '\0';
            }
            if (!writeAll(client.get(), buf, static_cast<size_t>(n))) break;
        }
    }
}

// ---- the client, running as system_server ----

// Seconds for kTripsPerRun round trips on one connection; -1 on failure.
double timeRoundTrips(const std::string& socketName) {
    pelk::UniqueFd fd(connectTo(socketName));
    if (!fd.ok()) return -1;
    int seq = 0;
    bool ok = true;
    double elapsed = walkbench::seconds([&] {
        for (int i = 0; i < kTripsPerRun && ok; ++i) {
            char line[64];
            int len = snprintf(line, sizeof(line), "%d is_mounted 10\n", ++seq);
            ok = writeAll(fd.get(), line, static_cast<size_t>(len));
            // One reply per line, ended by its NUL.
            char reply[256];
            ssize_t n = 0;
            do {
                n = read(fd.get(), reply, sizeof(reply));
                ok = n > 0;
            } while (ok && reply[n - 1] != '\0');
        }
    });
    return ok ? elapsed : -1;
}

struct Rates {
    double daemon;  // round trips per second
    double echo;
};

bool measureRates(Rates* out) {
    std::vector<double> daemon;
    std::vector<double> echo;
    for (int run = 0; run < kRuns; ++run) {
        double d = timeRoundTrips("pelk");
        double e = timeRoundTrips(kEchoName);
        if (d < 0 || e < 0) return false;
        daemon.push_back(d);
        echo.push_back(e);
    }
    out->daemon = kTripsPerRun / walkbench::median(daemon);
    out->echo = kTripsPerRun / walkbench::median(echo);
    return true;
}

void printRates(const char* how, const char* row, const Rates& r) {
    walkbench::summary(row, 1e6 / r.daemon, "us", "echo server", 1e6 / r.echo);
    printf("  %s\n", how);
    printf("    pelkd (\"pelk\")     %10.0f round trips/s  %8.2f us each\n", r.daemon, 1e6 / r.daemon);
    printf("    bare echo server   %10.0f round trips/s  %8.2f us each\n", r.echo, 1e6 / r.echo);
    printf("    ratio pelkd/echo   %10.3f\n", r.daemon / r.echo);
}

// Microseconds one record costs the logging process: the very record the
// daemon writes for each "is_mounted" line, logged from here.
double logRecordMicros() {
    std::vector<double> runs;
    for (int run = 0; run < kRuns; ++run) {
        runs.push_back(walkbench::seconds([] {
            for (int i = 0; i < kLogCallsPerRun; ++i)
                __android_log_buf_print(LOG_ID_SYSTEM, ANDROID_LOG_DEBUG, "pelkd", "\n\nCMD > %s \n", "is_mounted 10");
        }));
    }
    return walkbench::median(runs) / kLogCallsPerRun * 1e6;
}

// Records the daemon writes per command, counted over one run of trips.
double recordsPerTrip() {
    liblog_clear();
    if (timeRoundTrips("pelk") < 0) return -1;
    return static_cast<double>(liblog_records().size()) / kTripsPerRun;
}

void printShares(const Rates& r, double recordMicros, double records) {
    double daemonUs = 1e6 / r.daemon, echoUs = 1e6 / r.echo;
    double logUs = recordMicros * records;
    double engineUs = daemonUs - echoUs - logUs;
    printf("  where the daemon's time goes on one core (per round trip)\n");
    printf("    the exchange itself (= echo)   %7.2f us\n", echoUs);
    printf("    log sink: %.2f records x %.2f us  %7.2f us  (%4.1f%% of the trip)\n", records, recordMicros, logUs,
           100 * logUs / daemonUs);
    printf("    engine and framework, the rest %7.2f us  (%4.1f%% of the trip)\n", engineUs, 100 * engineUs / daemonUs);
    printf("    pelkd without its log sink would run at %.3f of the echo\n", echoUs / (daemonUs - logUs));
}

int runClient() {
    // Make sure the daemon accepts this caller before timing anything.
    {
        pelk::UniqueFd fd(connectTo("pelk"));
        const char probe[] = "1 is_mounted 10\n";
        char reply[64] = {0};
        if (!fd.ok() || !writeAll(fd.get(), probe, sizeof(probe) - 1) ||
            read(fd.get(), reply, sizeof(reply) - 1) <= 0 || strncmp(reply, "200 1 success", 13) != 0) {
            fprintf(stderr, "bench_roundtrip: the daemon did not accept the client: %s\n", reply);
            return 1;
        }
    }
    Rates rates{};
    if (!measureRates(&rates)) {
        fprintf(stderr, "bench_roundtrip: a connection failed\n");
        return 1;
    }
    if (getenv(kOneCpuEnv) == nullptr) {
        printf("command round trips, \"is_mounted 10\" from a caller that passes the check\n");
        printf("  %d round trips per run on one connection, median of %d runs\n", kTripsPerRun, kRuns);
        printRates("processes placed by the scheduler", "command round trip", rates);
        return 0;
    }
    printRates("every process pinned to one core (the work alone)", "command round trip, one core", rates);
    double records = recordsPerTrip();
    if (records < 0) return 1;
    printShares(rates, logRecordMicros(), records);
    return 0;
}

// ---- the disguise ----

[[noreturn]] void reexecAs(const char* name, const char* role, char** argv) {
    setenv(kRoleEnv, role, 1);
    argv[0] = const_cast<char*>(name);
    execv("/proc/self/exe", argv);
    perror("bench_roundtrip: execv");
    _exit(1);
}

int waitExit(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return 1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

pid_t spawn(const std::string& path, const char* argv0) {
    pid_t pid = fork();
    if (pid == 0) {
        execl(path.c_str(), argv0, static_cast<char*>(nullptr));
        _exit(127);
    }
    return pid;
}

// Pins every thread of a process to one core.
void pinProcess(pid_t pid, int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    pelk::UniqueDir dir(opendir(tasks.c_str()));
    if (!dir) return;
    while (dirent* e = readdir(dir.get())) {
        pid_t tid = atoi(e->d_name);
        if (tid > 0) sched_setaffinity(tid, sizeof(set), &set);
    }
}

int runZygote(char** argv) {
    pid_t zygote = fork();
    if (zygote == 0) reexecAs("zygote64", "zygote", argv);
    return zygote < 0 ? 1 : waitExit(zygote);
}

void stop(pid_t pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
}

}  // namespace

int main(int argc, char** argv) {
    (void)argc;
    const char* role = getenv(kRoleEnv);
    if (role && strcmp(role, "client") == 0) return runClient();
    if (role && strcmp(role, "zygote") == 0) {
        pid_t client = fork();
        if (client == 0) reexecAs("system_server", "client", argv);
        return client < 0 ? 1 : waitExit(client);
    }

    // The daemon's log stays in the device log; the terminal gets the result.
    setenv("ANDROID_LOG_TAGS", "*:s", 1);
    if (sim::enterSandbox() != 0) return 1;
    pid_t daemon = spawn(sim::toolPath("pelkd"), "pelkd");
    pid_t echo = fork();
    if (echo == 0) serveEcho();
    int result = 1;
    if (daemon > 0 && echo > 0 && waitForSocket("pelk") && waitForSocket(kEchoName)) {
        result = runZygote(argv);
        if (result == 0) {
            int cpu = sched_getcpu();
            for (pid_t pid : {daemon, echo, getpid()}) pinProcess(pid, cpu);
            setenv(kOneCpuEnv, "1", 1);
            result = runZygote(argv);
        }
    } else {
        fprintf(stderr, "bench_roundtrip: the daemon or the echo server did not come up\n");
    }
    stop(daemon);
    if (echo > 0) {
        kill(echo, SIGKILL);
        waitpid(echo, nullptr, 0);
    }
    return result;
}
