// Every malformed line is answered with exactly one 500 reply, and the same
// connection goes on serving the next good line.
#include "SysutilsFixture.h"

using namespace sysutils_test;

using BadInput = SysutilsTest;

namespace {

std::string wordsLine(const char* seq, int extraWords) {
    std::string line = std::string(seq) + " echo";
    for (int i = 0; i < extraWords; ++i) line += " w" + std::to_string(i);
    return line;
}

}  // namespace

TEST_F(BadInput, OverLongLineIsRefusedOnceAndSkippedToItsEnd) {
    TestListener& listener = start();
    TestClient client;
    const size_t limit = FrameworkListener::CMD_BUF_SIZE;

    // Ended at once: one refusal, then the next line works.
    ASSERT_TRUE(client.send("7 echo " + std::string(limit, 'x') + "\n8 echo ok\n"));
    EXPECT_EQ(client.next(), "500 7 Command too long");
    EXPECT_EQ(client.next(), "200 8 [echo][ok]");

    // Never ended yet: the refusal comes before the end, and the bytes up
    // to the end (however many) are dropped without a second reply.
    ASSERT_TRUE(client.send("9 echo " + std::string(limit, 'y')));
    EXPECT_EQ(client.next(), "500 9 Command too long");
    ASSERT_TRUE(client.send(std::string(3 * limit, 'z')));
    EXPECT_TRUE(client.silentFor(100));
    ASSERT_TRUE(client.send("zzz\n10 echo again\n"));
    EXPECT_EQ(client.next(), "200 10 [echo][again]");

    // Without a readable sequence number the refusal carries 0.
    ASSERT_TRUE(client.send("nonum " + std::string(limit, 'n') + "\n"));
    EXPECT_EQ(client.next(), "500 0 Command too long");
    EXPECT_EQ(client.ask("11 echo end"), "200 11 [echo][end]");
    EXPECT_TRUE(client.silentFor(50));

    // Only the good lines ever reached a command.
    EXPECT_EQ(listener.ran(), (std::vector<std::string>{"[echo][ok]", "[echo][again]", "[echo][end]"}));
}

TEST_F(BadInput, LineOfExactlyTheBufferSizeIsStillACommand) {
    start();
    TestClient client;
    const std::string head = "12 echo ";
    std::string word(FrameworkListener::CMD_BUF_SIZE - head.size(), 'k');
    EXPECT_EQ(client.ask(head + word), "200 12 [echo][" + word + "]");
    EXPECT_EQ(client.ask(head + word + "k"), "500 12 Command too long");
    EXPECT_EQ(client.ask("13 echo ok"), "200 13 [echo][ok]");
}

TEST_F(BadInput, TooManyWordsAreRefusedAtTheLimitPlusOne) {
    start();
    TestClient client;
    const int max = FrameworkListener::CMD_ARGS_MAX;
    std::string atLimit = client.ask(wordsLine("3", max - 1));
    EXPECT_EQ(atLimit.rfind("200 3 [echo][w0]", 0), 0u) << atLimit;
    EXPECT_EQ(client.ask(wordsLine("4", max)), "500 4 Command too many arguments");
    EXPECT_EQ(client.ask("5 echo ok"), "200 5 [echo][ok]");
}

TEST_F(BadInput, UnclosedQuoteIsRefused) {
    TestListener& listener = start();
    TestClient client;
    EXPECT_EQ(client.ask("4 echo \"abc def"), "500 4 Unclosed quotes error");
    // An escaped quote opens nothing; an escaped closing quote leaves it open.
    EXPECT_EQ(client.ask("5 echo \\\"abc"), "200 5 [echo][\"abc]");
    EXPECT_EQ(client.ask("6 echo \"abc\\\""), "500 6 Unclosed quotes error");
    EXPECT_EQ(client.ask("7 echo ok"), "200 7 [echo][ok]");
    EXPECT_EQ(listener.ran().size(), 2u);
}

TEST_F(BadInput, NonNumericSequenceNumberIsRefusedWithZero) {
    TestListener& listener = start();
    TestClient client;
    for (const char* line :
         {"abc echo x", "-1 echo", "+1 echo", "1a echo", "99999999999 echo", "echo 1", "\"2 echo\""}) {
        EXPECT_EQ(client.ask(line), "500 0 Invalid sequence number") << line;
    }
    EXPECT_EQ(client.ask("8 echo ok"), "200 8 [echo][ok]");
    EXPECT_EQ(listener.ran().size(), 1u);
}
