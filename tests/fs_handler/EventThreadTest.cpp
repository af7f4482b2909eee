// The event thread as it runs in pelkd: registration and restart, replies
// to well-formed requests only, and the 610 broadcast of a DLP audit line.
#include <android/log.h>
#include <gtest/gtest.h>
#include <log/log_records.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "devprofile/DeviceProfile.h"
#include "e2e/Daemon.h"
#include "support/Kernel.h"
#include "support/ListenerLog.h"

namespace {

// Waits until the daemon at pid has registered on unit 28.
bool waitForRegistration(pid_t pid) {
    for (int i = 0; i < 500; ++i) {
        hostkernel::NetlinkRegistration registration;
        if (hostkernel::readNetlinkRegistration(&registration) && registration.pid == pid) return true;
        usleep(10000);
    }
    return false;
}

using listenerlog::countStartingWith;

class EventThread : public testing::Test {
protected:
    void TearDown() override { e2e::stopDaemon(mDaemon); }
    void start() {
        mDaemon = e2e::startDaemon();
        ASSERT_GT(mDaemon, 0);
        ASSERT_TRUE(waitForRegistration(mDaemon));
    }
    pid_t mDaemon = -1;
};

TEST_F(EventThread, StartsWithTheManagerAndLogsTheKeptNotStartedLine) {
    start();
    EXPECT_EQ(countStartingWith("FsHandlerThread not started: Thread not created ("), 1);
    EXPECT_EQ(liblog_count("FsHandlerThread::FsHandlerThread created", "pelkd", ANDROID_LOG_INFO, LOG_ID_SYSTEM), 1);
    EXPECT_EQ(liblog_count("Netlink sending message queue initialized!", "pelkd", ANDROID_LOG_INFO), 1);
    kernel::Kernel kernel;
    EXPECT_EQ(kernel.exchange(kernel::makeRequest(1, 22, 10, 3, 12345, 1)), -2);
}

TEST_F(EventThread, FailedRegistrationRestartsWithANewSocket) {
    ASSERT_TRUE(devprofile::failNext("netlink28_register"));
    start();
    EXPECT_EQ(liblog_count("Could net set pid for events, error: Protocol error", "", ANDROID_LOG_ERROR), 1);
    EXPECT_EQ(countStartingWith("Failed on fipscrypto_set_pid with error: "), 1);
    EXPECT_EQ(liblog_count("fs_handler_thread_main terminated(rc:111).. restarting", "pelkd", ANDROID_LOG_ERROR), 1);
    EXPECT_EQ(liblog_count("FsHandlerThread::FsHandlerThread destroyed", "pelkd", ANDROID_LOG_INFO), 1);
    EXPECT_EQ(countStartingWith("Socket created with fd:"), 2);
    EXPECT_EQ(liblog_count("fs_handler setPid success pid = " + std::to_string(mDaemon)), 1);
    kernel::Kernel kernel;
    EXPECT_EQ(kernel.exchange(kernel::makeRequest(2, 12, 10, 3, 12345, 1)), -2);
}

TEST_F(EventThread, MalformedDatagramsGetNoReplyAndOneLineEach) {
    start();
    kernel::Kernel kernel;
    std::string request = hostkernel::encodeKernelRequest(kernel::makeRequest(9, 12, 10, 3, 1, 1));
    std::string tooLong = request;
    tooLong[0] = 45;  // one byte more than arrives
    std::string full(8208, '\0');
    full[1] = 0x30;  // header length 12288, beyond the 8208 bytes that arrive
    std::string oversized(9000, '\0');
    oversized[1] = 0x30;  // cut at 8208 bytes by the receive
    liblog_clear();
    for (const std::string& bad : {request.substr(0, 15), tooLong, full, oversized, std::string(16, '\0')})
        ASSERT_TRUE(kernel.send(bad));
    // The datagram of exactly a header has a length field of 0.
    ASSERT_TRUE(kernel.request(kernel::makeRequest(10, 12, 10, 3, 1, 1)));
    kernel::KernelReply reply;
    ASSERT_TRUE(kernel.receive(&reply));
    EXPECT_EQ(reply.requestId, 10u);
    EXPECT_EQ(liblog_count("multi_crypto_compute failed\n", "pelkd", ANDROID_LOG_ERROR), 5);
    EXPECT_EQ(liblog_count("Bad kernel response Invalid exchange", "pelkd", ANDROID_LOG_ERROR), 3);
    EXPECT_EQ(liblog_count("Bad kernel response File too large", "pelkd", ANDROID_LOG_ERROR), 2);
    std::string more;
    EXPECT_FALSE(kernel.receiveRaw(&more, 100));
}

TEST_F(EventThread, ExpiredFileIsDeletedAndItsAuditLineBroadcastWith610) {
    ASSERT_TRUE(kernel::mountEcryptfs("/data/user/10", 10, 3));
    ASSERT_TRUE(testfs::writeFile("/data/user/10/old.txt", "expired"));
    unsigned long inode = kernel::inodeOf("/data/user/10/old.txt");
    start();
    pelk::UniqueFd client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "/dev/socket/pelk");
    ASSERT_EQ(connect(client.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    // Any answer shows the listener has taken this client on.
    ASSERT_GT(write(client.get(), "1 is_mounted 10", 16), 0);
    char answer[512];
    ASSERT_GT(read(client.get(), answer, sizeof(answer)), 0);

    kernel::Kernel kernel;
    EXPECT_EQ(kernel.exchange(kernel::makeRequest(3, 25, 10, 3, inode, 4321)), 0);
    EXPECT_FALSE(testfs::exists("/data/user/10/old.txt"));
    std::string broadcast;
    char c;
    while (read(client.get(), &c, 1) == 1 && c != '\0') broadcast += c;
    EXPECT_EQ(broadcast, "610 10 25 4321 " + std::to_string(inode) + " /data/user/10/old.txt");
}

}  // namespace
