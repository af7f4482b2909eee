// Several clients at once: their own replies, clean removal of those that go
// away, broadcasts to all, and who each one is.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "SysutilsFixture.h"

using namespace sysutils_test;

using Clients = SysutilsTest;

TEST_F(Clients, InterleavedClientsEachGetTheirOwnRepliesInOrder) {
    start();
    TestClient a, b;
    ASSERT_TRUE(a.connected() && b.connected());
    for (int i = 1; i <= 20; ++i) {
        ASSERT_TRUE(a.send(std::to_string(i) + " echo a" + std::to_string(i) + "\n"));
        ASSERT_TRUE(b.send(std::to_string(100 + i) + " echo b" + std::to_string(i) + "\n"));
    }
    for (int i = 1; i <= 20; ++i) {
        EXPECT_EQ(a.next(), "200 " + std::to_string(i) + " [echo][a" + std::to_string(i) + "]");
        EXPECT_EQ(b.next(), "200 " + std::to_string(100 + i) + " [echo][b" + std::to_string(i) + "]");
    }
    EXPECT_TRUE(a.silentFor(50));
    EXPECT_TRUE(b.silentFor(0));
}

TEST_F(Clients, ClientLeavingMidLineCostsTheOthersNothing) {
    TestListener& listener = start();
    TestClient stays;
    EXPECT_EQ(stays.ask("1 echo before"), "200 1 [echo][before]");
    // Half a line sent while the other client is also half-way through one.
    ASSERT_TRUE(stays.send("2 echo hal"));
    {
        TestClient leaves;
        ASSERT_TRUE(leaves.send("9 echo partial"));
        poll(nullptr, 0, 50);
    }
    poll(nullptr, 0, 50);
    ASSERT_TRUE(stays.send("f\n"));
    EXPECT_EQ(stays.next(), "200 2 [echo][half]");

    TestClient later;
    EXPECT_EQ(later.ask("3 echo later"), "200 3 [echo][later]");
    for (const std::string& line : listener.ran()) EXPECT_EQ(line.find("partial"), std::string::npos);
}

TEST_F(Clients, ClientGoneBeforeItsReplyDoesNotHurtTheListener) {
    start();
    {
        TestClient gone;
        ASSERT_TRUE(gone.send("1 slow 100\n"));
    }
    // The reply to the vanished client fails with EPIPE, not SIGPIPE: this
    // process is still here and the listener still serves.
    poll(nullptr, 0, 200);
    TestClient next;
    EXPECT_EQ(next.ask("2 echo alive"), "200 2 [echo][alive]");
}

TEST_F(Clients, BroadcastReachesEveryClientWithoutSequenceNumber) {
    TestListener& listener = start();
    TestClient clients[3];
    for (TestClient& c : clients) EXPECT_EQ(c.ask("1 echo hi"), "200 1 [echo][hi]");
    listener.sendBroadcast(610, "audit 3 /data/file", false);
    for (TestClient& c : clients) EXPECT_EQ(c.next(), "610 audit 3 /data/file");

    clients[1].close();
    poll(nullptr, 0, 50);
    errno = EACCES;
    listener.sendBroadcast(610, "denied", true);
    EXPECT_EQ(clients[0].next(), std::string("610 denied: ") + strerror(EACCES));
    EXPECT_EQ(clients[2].next(), std::string("610 denied: ") + strerror(EACCES));
}

TEST_F(Clients, BroadcastsFromAnotherThreadNeverSplitAReply) {
    TestListener& listener = start();
    TestClient client;
    EXPECT_EQ(client.ask("1 echo hi"), "200 1 [echo][hi]");

    // Both message kinds are far larger than the socket buffer, so each is
    // written in many pieces while the other thread wants to write too.
    const size_t size = 300 * 1024;
    const int rounds = 8;
    const std::string broadcast(size, 'b');
    std::thread broadcaster([&] {
        for (int i = 0; i < rounds; ++i) listener.sendBroadcast(610, broadcast.c_str(), false);
    });
    for (int i = 0; i < rounds; ++i) {
        ASSERT_TRUE(client.send(std::to_string(100 + i) + " big " + std::to_string(size) + "\n"));
    }
    int replies = 0, broadcasts = 0;
    for (int i = 0; i < 2 * rounds; ++i) {
        std::string msg = client.next();
        if (msg.rfind("610 ", 0) == 0) {
            EXPECT_EQ(msg, "610 " + broadcast);
            ++broadcasts;
        } else {
            EXPECT_EQ(msg, "200 " + std::to_string(100 + replies) + " " + std::string(size, 'r'));
            ++replies;
        }
    }
    broadcaster.join();
    EXPECT_EQ(replies, rounds);
    EXPECT_EQ(broadcasts, rounds);
}

namespace {

// Reads up to the first NUL from fd.
std::string readUntilNul(int fd) {
    std::string out;
    char ch;
    while (read(fd, &ch, 1) == 1 && ch != '\0') out += ch;
    return out;
}

// True when this sandbox can switch to uid 1000 (real root, or a user
// namespace that maps more than one uid).
bool canSwitchUser() {
    std::ifstream map("/proc/self/uid_map");
    unsigned inside = 0, outside = 0, count = 0;
    map >> inside >> outside >> count;
    return count > 1000;
}

}  // namespace

TEST_F(Clients, PeerCredentialsAreTheConnectingProcesssOwn) {
    if (!canSwitchUser()) GTEST_SKIP() << "this sandbox maps no uid 1000";
    int go[2], result[2];
    ASSERT_EQ(pipe2(go, O_CLOEXEC), 0);
    ASSERT_EQ(pipe2(result, O_CLOEXEC), 0);
    pelk::UniqueFd goRead(go[0]), goWrite(go[1]), resultRead(result[0]), resultWrite(result[1]);

    // Forked before the listener thread exists; the child waits for "go".
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        char byte;
        if (setgid(1001) != 0 || setuid(1000) != 0 || read(goRead.get(), &byte, 1) != 1) _exit(2);
        int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        struct sockaddr_un addr {};
        addr.sun_family = AF_UNIX;
        snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", kSocketPath);
        if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) _exit(3);
        const char line[] = "1 whoami\n";
        if (write(fd, line, sizeof(line) - 1) != sizeof(line) - 1) _exit(4);
        std::string reply = readUntilNul(fd);
        if (write(resultWrite.get(), reply.data(), reply.size() + 1) < 0) _exit(5);
        _exit(0);
    }
    resultWrite.reset();
    start();
    // The socket is 0660: the caller gets in through its group.
    ASSERT_EQ(chown(kSocketPath, 0, 1001), 0);
    ASSERT_EQ(write(goWrite.get(), "g", 1), 1);

    std::string reply = readUntilNul(resultRead.get());
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(reply, "200 1 " + std::to_string(child) + " 1000 1001");
}
