// The reply texts every command builds: bounded buffers and the failure
// text rule, read back from a real socket.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sysutils/SocketClient.h>
#include <unistd.h>

#include <string>

#include "base/UniqueFd.h"
#include "command/CommandReply.h"

namespace {

class Replies : public testing::Test {
protected:
    void SetUp() override {
        int fds[2];
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds));
        mPeer.reset(fds[1]);
        mClient = new SocketClient(fds[0], true, false);
    }
    void TearDown() override { mClient->decRef(); }

    // The next message, without its NUL.
    std::string next() {
        std::string msg;
        char ch;
        while (read(mPeer.get(), &ch, 1) == 1 && ch != '\0') msg += ch;
        return msg;
    }

    SocketClient* mClient = nullptr;
    pelk::UniqueFd mPeer;
};

TEST_F(Replies, FailureTextDependsOnTheSign) {
    pelk::replyFailure(mClient, -2);
    EXPECT_EQ(std::string("281 failed -2 ") + strerror(2), next());
    pelk::replyFailure(mClient, 3);
    EXPECT_EQ("281 failed 3", next());
    pelk::replyWrongCount(mClient, 1, 2);
    EXPECT_EQ("501 given argc [1] != expected [2]", next());
}

TEST_F(Replies, ChunkResultsOtherThanOneAreStillGoing) {
    EXPECT_EQ(0, pelk::replyChunkResult(mClient, 0));
    EXPECT_EQ("201 on going", next());
    EXPECT_EQ(2, pelk::replyChunkResult(mClient, 2));
    EXPECT_EQ("201 on going", next());
    EXPECT_EQ(1, pelk::replyChunkResult(mClient, 1));
    EXPECT_EQ("200 success", next());
    EXPECT_EQ(-22, pelk::replyChunkResult(mClient, -22));
    EXPECT_EQ(std::string("281 failed -22 ") + strerror(22), next());
}

TEST_F(Replies, TextsAreCutToTheirBuffers) {
    std::string word(5000, 'w');
    pelk::sendReply(mClient, 200, "%s", word.c_str());
    EXPECT_EQ("200 " + std::string(pelk::REPLY_SIZE - 1, 'w'), next());
    pelk::sendLongReply(mClient, 200, "%s", word.c_str());
    EXPECT_EQ("200 " + std::string(pelk::LONG_REPLY_SIZE - 1, 'w'), next());
}

TEST(CopyWord, CutsAndTerminates) {
    char buf[8];
    memset(buf, 'x', sizeof(buf));
    pelk::copyWord(buf, sizeof(buf), "abcdefghijkl");
    EXPECT_STREQ("abcdefg", buf);
    pelk::copyWord(buf, sizeof(buf), "ab");
    EXPECT_STREQ("ab", buf);
    EXPECT_EQ('\0', buf[6]) << "the rest of the field is zero-filled";
}

}  // namespace
