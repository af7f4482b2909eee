// Clients that try to stop a listener for everyone: one that never reads its
// replies, broadcasts piling up for one that does not read, more connections
// than a listener keeps, and no descriptor left to accept with. Each must
// cost only itself, and be reported without flooding the log.
#include <fcntl.h>
#include <log/log.h>
#include <log/log_records.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <string>
#include <vector>

#include "SysutilsFixture.h"
#include "support/ListenerLog.h"

using namespace sysutils_test;

namespace {

using listenerlog::Clock;
using listenerlog::listenerLines;
using listenerlog::msSince;

// Waits up to ms for a listener line that starts so.
bool waitForLine(const std::string& prefix, int ms) { return listenerlog::waitForListenerLine(prefix, ms, 20); }

// A raw connection that writes without blocking and never reads.
class Flooder {
public:
    Flooder() : mFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        struct sockaddr_un addr {};
        addr.sun_family = AF_UNIX;
        snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", kSocketPath);
        if (connect(mFd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) mFd.reset();
    }
    bool connected() const { return mFd.ok(); }
    int fd() const { return mFd.get(); }

    // Sends echo lines until the socket takes no more (the listener stopped
    // reading this client) or the bound is reached; answers the lines sent.
    long flood(long maxLines) {
        std::string chunk;
        long sent = 0;
        Clock::time_point start = Clock::now();
        while (sent < maxLines && msSince(start) < 10000) {
            chunk.clear();
            for (int i = 0; i < 256; ++i) chunk += std::to_string(sent + i) + " echo flood\n";
            ssize_t n = send(mFd.get(), chunk.data(), chunk.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
                // Give the listener a moment: full only if it stays full.
                struct pollfd pfd = {mFd.get(), POLLOUT, 0};
                if (poll(&pfd, 1, 300) == 0) break;
                continue;
            }
            if (n <= 0) break;
            sent += 256;  // a partial send still counts as lines for this bound
        }
        return sent;
    }

    // True when the listener closed this connection: whatever was still
    // unread is skipped, then end of stream.
    bool closedByListener(int ms) {
        Clock::time_point start = Clock::now();
        char buf[65536];
        while (msSince(start) < ms) {
            struct pollfd pfd = {mFd.get(), POLLIN, 0};
            if (poll(&pfd, 1, 100) <= 0) continue;
            ssize_t n = read(mFd.get(), buf, sizeof(buf));
            if (n == 0 || (n < 0 && errno == ECONNRESET)) return true;
        }
        return false;
    }

private:
    pelk::UniqueFd mFd;
};

}  // namespace

using HostileClients = SysutilsTest;

TEST_F(HostileClients, ClientThatFloodsAndNeverReadsCostsOnlyItself) {
    start();
    TestClient honest;
    EXPECT_EQ(honest.ask("1 echo before"), "200 1 [echo][before]");

    Flooder flooder;
    ASSERT_TRUE(flooder.connected());
    Clock::time_point floodStart = Clock::now();
    // Far more replies than its socket holds; it stops taking lines once
    // the listener stops reading it.
    long lines = flooder.flood(2000000);
    EXPECT_GT(lines, 1000);
    EXPECT_LT(lines, 2000000) << "the listener never stopped reading the flooder";

    // The honest client is served at once, however many lines wait.
    Clock::time_point askStart = Clock::now();
    for (int i = 2; i <= 21; ++i) {
        std::string seq = std::to_string(i);
        ASSERT_EQ(honest.ask(seq + " echo honest"), "200 " + seq + " [echo][honest]");
    }
    EXPECT_LT(msSince(askStart), 2000);

    // The flooder's replies go unread: it is dropped with one line, after
    // the bound and not much later.
    const std::string dropped = "Dropping client (pid " + std::to_string(getpid()) + "): its replies waited " +
                                std::to_string(SocketClient::kMaxReplyWaitMs) + " ms unread";
    EXPECT_TRUE(waitForLine(dropped, SocketClient::kMaxReplyWaitMs + 5000));
    EXPECT_GE(msSince(floodStart), SocketClient::kMaxReplyWaitMs - 100);
    EXPECT_EQ(listenerLines(dropped), std::vector<std::string>{dropped});
    // (Read only now: reading would count as taking its replies.)
    EXPECT_TRUE(flooder.closedByListener(2000));

    // And the listener goes on for the others and for newcomers.
    EXPECT_EQ(honest.ask("30 echo after"), "200 30 [echo][after]");
    TestClient later;
    EXPECT_EQ(later.ask("31 echo later"), "200 31 [echo][later]");
}

TEST_F(HostileClients, RepliesThatWaitAreSentWholeAndInOrderOnceThePeerReads) {
    start();
    TestClient slowReader;
    // Replies far larger than the socket buffer, asked for all at once: the
    // later lines wait for the earlier replies to go, none is lost or split.
    const size_t size = 700 * 1024;
    std::string lines;
    for (int i = 1; i <= 5; ++i) lines += std::to_string(i) + " big " + std::to_string(size) + "\n";
    ASSERT_TRUE(slowReader.send(lines));
    poll(nullptr, 0, 300);
    TestClient other;
    EXPECT_EQ(other.ask("9 echo meanwhile"), "200 9 [echo][meanwhile]");
    for (int i = 1; i <= 5; ++i) {
        EXPECT_EQ(slowReader.next(), std::to_string(200) + " " + std::to_string(i) + " " + std::string(size, 'r'));
    }
    EXPECT_EQ(slowReader.ask("6 echo done"), "200 6 [echo][done]");
}

TEST_F(HostileClients, BroadcastsToAClientThatNeverReadsNeitherBlockNorPileUp) {
    TestListener& listener = start();
    TestClient reader;
    EXPECT_EQ(reader.ask("1 echo hi"), "200 1 [echo][hi]");
    Flooder stuck;
    ASSERT_TRUE(stuck.connected());
    // The listener has it once it answered a line of it... which it never reads.
    ASSERT_TRUE(send(stuck.fd(), "2 echo stuck\n", 13, MSG_NOSIGNAL) == 13);
    poll(nullptr, 0, 100);

    // Each broadcast is larger than the socket buffer. The broadcaster is
    // never held up by the peer that does not read; that peer is dropped
    // once more than the bound waits for it.
    const std::string text(1024 * 1024, 'b');
    const size_t rounds = SocketClient::kMaxPendingBytes / text.size() + 3;
    Clock::time_point start = Clock::now();
    for (size_t i = 0; i < rounds; ++i) {
        listener.sendBroadcast(610, text.c_str(), false);
        EXPECT_EQ(reader.next(), "610 " + text);
    }
    EXPECT_LT(msSince(start), 5000);
    const std::string overflow = "Dropping client (pid " + std::to_string(getpid()) + "): more than " +
                                 std::to_string(SocketClient::kMaxPendingBytes) + " bytes of replies unread";
    EXPECT_TRUE(waitForLine(overflow, 2000));
    EXPECT_EQ(listenerLines(overflow).size(), 1u);
    EXPECT_TRUE(stuck.closedByListener(2000));
    EXPECT_EQ(reader.ask("3 echo still"), "200 3 [echo][still]");
}

TEST_F(HostileClients, BeyondTheLimitTheClientIdleLongestIsDropped) {
    start();
    const int max = SocketListener::kMaxClients;
    std::vector<std::unique_ptr<TestClient>> clients;
    for (int i = 0; i < max; ++i) {
        clients.emplace_back(new TestClient);
        ASSERT_TRUE(clients.back()->connected());
    }
    // All accepted; the first one is then the most recently active.
    EXPECT_EQ(clients.back()->ask("1 echo last"), "200 1 [echo][last]");
    poll(nullptr, 0, 20);
    EXPECT_EQ(clients[0]->ask("2 echo first"), "200 2 [echo][first]");

    // Twenty more: each drops the one idle longest, from the second on.
    const int extra = 20;
    for (int i = 0; i < extra; ++i) {
        clients.emplace_back(new TestClient);
        ASSERT_TRUE(clients.back()->connected());
        EXPECT_EQ(clients.back()->ask("3 echo new"), "200 3 [echo][new]");
    }
    EXPECT_EQ(clients[0]->ask("4 echo kept"), "200 4 [echo][kept]");
    for (int i = 1; i <= extra; ++i) EXPECT_EQ(clients[i]->next(1000), "<eof>") << i;
    for (size_t i = extra + 1; i < clients.size(); ++i) {
        EXPECT_EQ(clients[i]->ask("5 echo alive"), "200 5 [echo][alive]") << i;
    }

    // One line for the first drop; the others (within a second) are counted
    // in the next line rather than each logged.
    const std::string first = "Too many clients (" + std::to_string(max) + "): dropping the one idle longest (pid " +
                              std::to_string(getpid()) + ")";
    std::vector<std::string> lines = listenerLines("Too many clients");
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], first);
    EXPECT_LE(lines.size(), 3u);
}

TEST_F(HostileClients, AcceptWithoutDescriptorsRestsInsteadOfSpinning) {
    int ready[2];
    ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
    pelk::UniqueFd readyRead(ready[0]), readyWrite(ready[1]);
    // The listener in a process of its own, whose descriptor limit leaves
    // room for two clients.
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        readyRead.reset();
        TestListener listener(kSocketName, true);
        if (listener.startListener() != 0) _exit(2);
        __android_log_print(ANDROID_LOG_INFO, "HostileClientsTest", "listener up");  // log file open now
        {
            // One whole exchange first: the sanitizers check the dynamic
            // types on these paths once, with a pipe of their own, which
            // they could not open later.
            TestClient warm;
            if (warm.ask("0 echo warm") != "200 0 [echo][warm]") _exit(5);
        }
        poll(nullptr, 0, 100);
        // Descriptors are numbered from the lowest free one up, and none may
        // reach the limit: stop just past the second free number.
        int limit = 0;
        for (int freeSeen = 0; freeSeen < 2; ++limit) {
            if (fcntl(limit, F_GETFD) == -1 && errno == EBADF) ++freeSeen;
        }
        struct rlimit lim = {static_cast<rlim_t>(limit), static_cast<rlim_t>(limit)};
        if (setrlimit(RLIMIT_NOFILE, &lim) != 0) _exit(3);
        if (write(readyWrite.get(), "r", 1) != 1) _exit(4);
        for (;;) pause();
    }
    readyWrite.reset();
    char byte;
    ASSERT_EQ(read(readyRead.get(), &byte, 1), 1);

    TestClient a, b;
    EXPECT_EQ(a.ask("1 echo a"), "200 1 [echo][a]");
    EXPECT_EQ(b.ask("2 echo b"), "200 2 [echo][b]");
    // No descriptor is left for these: they wait in the backlog, or fail to
    // connect at all once it is full.
    std::vector<pelk::UniqueFd> waiting;
    for (int i = 0; i < 10; ++i) {
        pelk::UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        struct sockaddr_un addr {};
        addr.sun_family = AF_UNIX;
        snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", kSocketPath);
        if (connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0) waiting.push_back(std::move(fd));
    }
    ASSERT_FALSE(waiting.empty());

    // For two seconds the accept keeps failing. It is logged once, not a
    // hundred times a second, and the connected clients are served on.
    const std::string failed = std::string("accept failed: ") + strerror(EMFILE);
    for (int i = 0; i < 10; ++i) {
        poll(nullptr, 0, 200);
        EXPECT_EQ(a.ask("3 echo served"), "200 3 [echo][served]");
    }
    EXPECT_EQ(listenerLines("accept failed").size(), 1u);
    EXPECT_EQ(listenerLines(failed).size(), 1u);

    // A descriptor comes free: the first waiting connection is taken within
    // the longest rest, and served.
    b.close();
    const char line[] = "4 echo waited\n";
    ASSERT_EQ(send(waiting[0].get(), line, sizeof(line) - 1, MSG_NOSIGNAL), static_cast<ssize_t>(sizeof(line) - 1));
    struct pollfd pfd = {waiting[0].get(), POLLIN, 0};
    ASSERT_EQ(poll(&pfd, 1, 3000), 1);
    char reply[64] = {0};
    EXPECT_GT(read(waiting[0].get(), reply, sizeof(reply) - 1), 0);
    EXPECT_STREQ(reply, "200 4 [echo][waited]");

    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
}
