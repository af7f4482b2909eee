// How lines travel in and replies travel out, through a real socket.
#include "SysutilsFixture.h"

using namespace sysutils_test;

using WireFormat = SysutilsTest;

TEST_F(WireFormat, ReplyEchoesTheSequenceNumberAndEndsWithOneNul) {
    start();
    TestClient client;
    ASSERT_TRUE(client.connected());
    ASSERT_TRUE(client.send("42 echo a\n"));
    // Read the raw bytes: the NUL must be there, and nothing after it.
    std::string raw = client.next();
    EXPECT_EQ(raw, "200 42 [echo][a]");
    EXPECT_TRUE(client.silentFor(100));

    EXPECT_EQ(client.ask("0 echo"), "200 0 [echo]");
    EXPECT_EQ(client.ask("2147483647 echo"), "200 2147483647 [echo]");
}

TEST_F(WireFormat, WithoutSequenceNumbersTheFirstWordIsTheCommand) {
    start(false);
    TestClient client;
    EXPECT_EQ(client.ask("echo 7 b"), "200 [echo][7][b]");
    EXPECT_EQ(client.ask("nosuch"), "500 Command not recognized");
}

TEST_F(WireFormat, LinesEndWithNewlineOrNulAndMayArriveTogetherOrInPieces) {
    TestListener& listener = start();
    TestClient client;
    // Three lines in one write, with both terminators and an empty line.
    const char lines[] = "1 echo a\n2 echo b\0\n3 echo c\n";
    ASSERT_TRUE(client.send(std::string(lines, sizeof(lines) - 1)));
    EXPECT_EQ(client.next(), "200 1 [echo][a]");
    EXPECT_EQ(client.next(), "200 2 [echo][b]");
    EXPECT_EQ(client.next(), "200 3 [echo][c]");

    // One line over three writes, the listener reading in between.
    ASSERT_TRUE(client.send("4 ec"));
    EXPECT_TRUE(client.silentFor(50));
    ASSERT_TRUE(client.send("ho sp"));
    EXPECT_TRUE(client.silentFor(50));
    ASSERT_TRUE(client.send("lit\n"));
    EXPECT_EQ(client.next(), "200 4 [echo][split]");
    EXPECT_EQ(listener.ran().size(), 4u);
}

TEST_F(WireFormat, QuotesAndBackslashesReachArgvExactly) {
    start();
    TestClient client;
    EXPECT_EQ(client.ask(R"(1 echo "a b" c\"d e\\f \q "" x"y z"w)"), R"(200 1 [echo][a b][c"d][e\f][q][][xy zw])");
    // Escapes inside quotes, blanks and tabs between words, a lone
    // backslash at the end of the line.
    EXPECT_EQ(client.ask("2 echo \"in \\\"side\\\"\"\t  tab  \\"), "200 2 [echo][in \"side\"][tab][\\]");
    // A quoted sequence number is still a number, a quoted word still a word.
    EXPECT_EQ(client.ask("\"3\" \"echo\""), "200 3 [echo]");
}

TEST_F(WireFormat, UnknownWordIsAnsweredByTheFramework) {
    TestListener& listener = start();
    TestClient client;
    EXPECT_EQ(client.ask("5 nosuch a b"), "500 5 Command not recognized");
    // Prefixes and case variants of a registered word are other words.
    EXPECT_EQ(client.ask("6 ech"), "500 6 Command not recognized");
    EXPECT_EQ(client.ask("7 ECHO"), "500 7 Command not recognized");
    // A sequence number alone names no command.
    EXPECT_EQ(client.ask("8"), "500 8 Command not recognized");
    EXPECT_TRUE(listener.ran().empty());
}

TEST_F(WireFormat, ErrnoTextIsAppendedOnRequest) {
    start();
    TestClient client;
    EXPECT_EQ(client.ask("9 errno"), std::string("400 9 lookup: ") + strerror(ENOENT));
}

TEST_F(WireFormat, RepliesLargerThanTheSocketBufferArriveWhole) {
    start();
    TestClient client;
    const size_t size = 1 << 20;
    std::string reply = client.ask("10 big " + std::to_string(size));
    EXPECT_EQ(reply, "200 10 " + std::string(size, 'r'));
    EXPECT_EQ(client.ask("11 echo after"), "200 11 [echo][after]");
}
