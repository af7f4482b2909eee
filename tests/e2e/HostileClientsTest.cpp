// Clients that try to take the daemon's sockets away from system_server: one
// that floods "pelk" with lines and never reads a reply (it needs no passed
// caller check: refusals are replies too), and thousands of idle connections
// under the device's limit of 1,024 descriptors.
#include <fcntl.h>
#include <log/log_records.h>
#include <poll.h>
#include <sys/resource.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Daemon.h"
#include "support/ListenerLog.h"
#include "support/ProcessStatus.h"

namespace {

using e2e::pelkctl;
using listenerlog::Clock;
using listenerlog::listenerLines;
using listenerlog::msSince;
using procstatus::openDescriptors;

bool waitForLine(const std::string& text, int ms) { return listenerlog::waitForListenerLine(text, ms, 50, true); }

// A connection, tried for up to ms while the socket's backlog is full (the
// daemon not accepting); invalid when it could not be made.
pelk::UniqueFd connectTo(const char* path, int ms = 5000) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path);
    Clock::time_point start = Clock::now();
    for (;;) {
        pelk::UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0) {
            fcntl(fd.get(), F_SETFL, 0);
            return fd;
        }
        if (errno != EAGAIN || msSince(start) >= ms) return pelk::UniqueFd();
        poll(nullptr, 0, 1);
    }
}

// One line over a connection of this process (not system_server), and its
// reply within the time given; "<timeout>" or "<eof>" otherwise. It shows
// that the socket is served, whatever the caller check answers.
std::string exchange(const char* path, const std::string& line, int ms = 5000) {
    pelk::UniqueFd fd = connectTo(path);
    if (!fd.ok()) return "<no connection>";
    std::string text = line + "\n";
    if (send(fd.get(), text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size())) return "<send>";
    std::string reply;
    Clock::time_point start = Clock::now();
    for (;;) {
        int left = ms - static_cast<int>(msSince(start));
        struct pollfd pfd = {fd.get(), POLLIN, 0};
        if (left <= 0 || poll(&pfd, 1, left) <= 0) return "<timeout>";
        char ch;
        ssize_t n = read(fd.get(), &ch, 1);
        if (n <= 0) return "<eof>";
        if (ch == '\0') return reply;
        reply += ch;
    }
}

const char kRefusal[] = "failed Permission denied";

class HostileClients : public e2e::DaemonTest {};

TEST_F(HostileClients, AClientThatNeverReadsDoesNotStopPelk) {
    pelk::UniqueFd flooder = connectTo("/dev/socket/pelk");
    ASSERT_TRUE(flooder.ok());
    // Lines until the socket takes no more: the daemon has stopped reading
    // them, as their refusals go unread.
    Clock::time_point floodStart = Clock::now();
    long lines = 0;
    std::string chunk;
    while (lines < 1000000 && msSince(floodStart) < 10000) {
        chunk.clear();
        for (int i = 0; i < 64; ++i) chunk += std::to_string(lines + i) + " is_mounted 10\n";
        ssize_t n = send(flooder.get(), chunk.data(), chunk.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            struct pollfd pfd = {flooder.get(), POLLOUT, 0};
            if (poll(&pfd, 1, 500) == 0) break;
            continue;
        }
        ASSERT_GT(n, 0) << strerror(errno);
        lines += 64;
    }
    EXPECT_GT(lines, 300) << "fewer lines than replies fill a socket";
    EXPECT_LT(lines, 1000000) << "the daemon never stopped reading the flooder";

    // system_server is served at once, and so is another refused caller.
    Clock::time_point askStart = Clock::now();
    // (Asserted: pelkctl would wait for ever on a listener that hangs.)
    ASSERT_EQ("281 1 " + std::string(kRefusal), exchange("/dev/socket/pelk", "1 is_mounted 10"));
    auto honest = pelkctl({"is_mounted", "10"});
    EXPECT_EQ(std::vector<std::string>{"200 1 success"}, honest.lines);
    EXPECT_LT(msSince(askStart), 3000);

    // The flooder is dropped with one line once its replies waited too long.
    const std::string dropped =
        "Dropping client (pid " + std::to_string(getpid()) + "): its replies waited 5000 ms unread";
    EXPECT_TRUE(waitForLine(dropped, 15000));
    EXPECT_EQ(1u, listenerLines(dropped).size());
    EXPECT_GE(msSince(floodStart), 4900);
    auto after = pelkctl({"is_mounted", "10"});
    EXPECT_EQ(std::vector<std::string>{"200 1 success"}, after.lines);
}

// The daemon under a device's descriptor limit.
class DeviceDescriptorLimit : public HostileClients {
protected:
    rlim_t descriptorLimit() const override { return 1024; }
};

TEST_F(DeviceDescriptorLimit, TwoThousandIdleConnectionsLeaveBothSocketsReachable) {
    // This process holds every connection it makes.
    struct rlimit lim;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &lim));
    ASSERT_GE(lim.rlim_max, 3000u) << "the test needs 3,000 descriptors of its own";
    lim.rlim_cur = lim.rlim_max;
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &lim));

    // "ppm" checks no caller: anyone may connect and stay idle.
    Clock::time_point start = Clock::now();
    std::vector<pelk::UniqueFd> idle;
    for (int i = 0; i < 2000; ++i) {
        idle.push_back(connectTo("/dev/socket/ppm"));
        ASSERT_TRUE(idle.back().ok()) << i << ": " << strerror(errno);
    }
    ASSERT_EQ("281 1 " + std::string(kRefusal), exchange("/dev/socket/pelk", "1 is_mounted 10"));
    auto honest = pelkctl({"is_mounted", "10"});
    EXPECT_EQ(std::vector<std::string>{"200 1 success"}, honest.lines);
    EXPECT_EQ("200 1 success", exchange("/dev/socket/ppm", "1 unmount_privatemode 0 /x"));  // nothing mounted

    // And a few hundred more on "pelk" itself, where refused callers stay
    // connected: a newcomer still gets its answer.
    for (int i = 0; i < 500; ++i) {
        idle.push_back(connectTo("/dev/socket/pelk"));
        ASSERT_TRUE(idle.back().ok()) << i << ": " << strerror(errno);
    }
    ASSERT_EQ("281 1 " + std::string(kRefusal), exchange("/dev/socket/pelk", "1 is_mounted 10"));
    auto again = pelkctl({"is_mounted", "10"});
    EXPECT_EQ(std::vector<std::string>{"200 1 success"}, again.lines);

    // The daemon holds a bounded number of them, far below its limit, and
    // never ran out: no accept failed, and the drops were not each logged.
    EXPECT_LT(openDescriptors(mDaemon), 2 * 64 + 100);
    EXPECT_EQ(0u, listenerLines("accept failed").size());
    long long seconds = msSince(start) / 1000 + 1;
    std::vector<std::string> drops = listenerLines("Too many clients (64): dropping the one idle longest (pid ");
    EXPECT_GE(drops.size(), 2u);  // one a socket at least
    EXPECT_LE(static_cast<long long>(drops.size()), 2 * seconds + 2);
}

}  // namespace
