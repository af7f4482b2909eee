// The netlink channel's byte layouts and limits, with this process as the
// daemon and the test as the kernel.
#include <android/log.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <log/log_records.h>
#include <unistd.h>

#include "devprofile/DeviceProfile.h"
#include "fs_handler/FsNetlinkHandler.h"
#include "support/Kernel.h"

namespace {

std::string bytes(std::initializer_list<int> values) {
    std::string out;
    for (int v : values) out.push_back(static_cast<char>(v));
    return out;
}

std::string le32(uint32_t v) { return bytes({int(v & 0xff), int(v >> 8 & 0xff), int(v >> 16 & 0xff), int(v >> 24)}); }

TEST(NetlinkChannel, RegistrationIsFortyBytesWithThePidAtTwelve) {
    FsNetlinkHandler handler(ECRYPTFS_NETLINK_UNIT);
    ASSERT_GE(handler.fd(), 1);
    liblog_clear();
    ASSERT_EQ(handler.setPid(), 0);
    hostkernel::NetlinkRegistration registration;
    ASSERT_TRUE(hostkernel::readNetlinkRegistration(&registration));
    std::string expected = le32(56) + bytes({0xb9, 0x0b, 1, 0}) + std::string(8, '\0') + std::string(12, '\0') +
                           le32(static_cast<uint32_t>(getpid())) + std::string(24, '\0');
    EXPECT_EQ(registration.datagram, expected);
    EXPECT_EQ(registration.pid, getpid());
    EXPECT_EQ(
        liblog_count("fs_handler setPid success pid = " + std::to_string(getpid()), "", ANDROID_LOG_INFO, LOG_ID_MAIN),
        1);
}

TEST(NetlinkChannel, RequestInReplyOutByteForByte) {
    FsNetlinkHandler handler(ECRYPTFS_NETLINK_UNIT);
    ASSERT_EQ(handler.setPid(), 0);
    kernel::Kernel kernel;
    ASSERT_TRUE(kernel.request(kernel::makeRequest(7, 10, 10, 3, 0x1122334455ULL, 99)));
    ecryptfs_netlink_recvmsg message{};
    unsigned int senderLength = 12;
    ASSERT_EQ(handler.recv(&message, 0, 0, &senderLength), 44);
    EXPECT_EQ(senderLength, 12u);
    EcryptfsRequest request = netlinkwire::decodeRequest(message.data + 16);
    EXPECT_EQ(request.requestId, 7u);
    EXPECT_EQ(request.inode, 0x1122334455ULL);
    EXPECT_EQ(request.pid, 99);

    char reply[8];
    netlinkwire::encodeReply(reply, 7, 10, 0);
    ASSERT_EQ(handler.send(ECRYPTFS_MSG_REPLY, reply, sizeof(reply)), 24);
    std::string datagram;
    ASSERT_TRUE(kernel.receiveRaw(&datagram));
    EXPECT_EQ(datagram, le32(24) + bytes({0xba, 0x0b, 1, 0}) + std::string(8, '\0') + bytes({7, 0, 0, 0, 10, 0, 0, 0}));
}

TEST(NetlinkChannel, PayloadLimitsAndNullPayload) {
    FsNetlinkHandler handler(ECRYPTFS_NETLINK_UNIT);
    std::string big(8177, 'x');
    liblog_clear();
    EXPECT_EQ(handler.send(ECRYPTFS_MSG_REPLY, big.data(), 8176), 8192);
    EXPECT_EQ(handler.send(ECRYPTFS_MSG_REPLY, big.data(), 8177), -22);
    EXPECT_EQ(liblog_count("send ::The netlink message is too large\n", "", ANDROID_LOG_ERROR, LOG_ID_MAIN), 1);
    EXPECT_EQ(handler.send(ECRYPTFS_MSG_REPLY, nullptr, 8), -22);
    EXPECT_EQ(liblog_count("send :: Invalid data\n", "", ANDROID_LOG_ERROR, LOG_ID_MAIN), 1);
    // A length whose sum with the header wraps in 32 bits passes the first
    // limit and is caught by the second.
    EXPECT_EQ(handler.send(ECRYPTFS_MSG_REPLY, big.data(), 0x100000000UL - 16), -22);
    EXPECT_EQ(liblog_count("send ::The netlink message-data is too large\n", "", ANDROID_LOG_ERROR, LOG_ID_MAIN), 1);
}

TEST(NetlinkChannel, InterruptedSendsRepeatOtherFailuresAreProtocolErrors) {
    FsNetlinkHandler handler(ECRYPTFS_NETLINK_UNIT);
    char reply[8] = {0};
    ASSERT_TRUE(devprofile::failNext("netlink28_interrupt", 3));
    EXPECT_EQ(handler.send(ECRYPTFS_MSG_REPLY, reply, 8), 24);
    ASSERT_TRUE(devprofile::failNext("netlink28_send"));
    EXPECT_EQ(handler.send(ECRYPTFS_MSG_REPLY, reply, 8), -71);
    ASSERT_TRUE(devprofile::failNext("netlink28_register"));
    EXPECT_EQ(handler.setPid(), -71);
    EXPECT_EQ(liblog_count("Could net set pid for events, error: Protocol error", "", ANDROID_LOG_ERROR, LOG_ID_MAIN),
              1);
}

TEST(NetlinkChannel, WithoutSocketSendIsBadDescriptorSilentlyAndRecvIsZero) {
    ASSERT_TRUE(devprofile::failNext("netlink28_socket"));
    liblog_clear();
    FsNetlinkHandler handler(ECRYPTFS_NETLINK_UNIT);
    EXPECT_EQ(handler.fd(), -1);
    EXPECT_EQ(liblog_count("Socket created with fd:-1\n", "", ANDROID_LOG_INFO, LOG_ID_MAIN), 1);
    liblog_clear();
    char reply[8] = {0};
    EXPECT_EQ(handler.send(ECRYPTFS_MSG_REPLY, reply, 8), -9);
    EXPECT_EQ(handler.send(ECRYPTFS_MSG_REPLY, nullptr, 8), -9);
    ecryptfs_netlink_recvmsg message{};
    unsigned int length = 12;
    EXPECT_EQ(handler.recv(&message, 0, 0, &length), 0);
    EXPECT_TRUE(liblog_records().empty());
}

TEST(NetlinkChannel, NonBlockingReceiveWithNothingWaitingIsZero) {
    FsNetlinkHandler handler(ECRYPTFS_NETLINK_UNIT);
    ecryptfs_netlink_recvmsg message{};
    unsigned int length = 12;
    EXPECT_EQ(handler.recv(&message, 1, 0, &length), 0);
}

TEST(NetlinkChannel, DescriptorZeroIsLeftOpenAndInitDoesNotReplaceTheSocket) {
    int savedStdin = dup(0);
    ASSERT_GE(savedStdin, 0);
    close(0);
    {
        FsNetlinkHandler handler(ECRYPTFS_NETLINK_UNIT);
        EXPECT_EQ(handler.fd(), 0);
        int further = handler.init(ECRYPTFS_NETLINK_UNIT);
        EXPECT_GT(further, 0);
        EXPECT_EQ(handler.fd(), 0);
        close(further);
    }
    EXPECT_NE(fcntl(0, F_GETFD), -1);
    close(0);
    dup2(savedStdin, 0);
    close(savedStdin);
}

}  // namespace
