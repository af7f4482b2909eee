// What each opcode does with its file found and not found, as the DLP and
// sensitive-data libraries and the log see it.
#include <android/log.h>
#include <gtest/gtest.h>
#include <log/log_records.h>
#include <stdlib.h>
#include <sys/time.h>

#include "fs_handler/FsHandlerThread.h"
#include "fs_handler/LibraryFakes.h"
#include "support/Kernel.h"

namespace {

const char kMount[] = "/data/ecfs";
const char kFile[] = "/data/ecfs/doc.txt";
constexpr int kUser = 10;
constexpr int kPartition = 3;
constexpr int kPid = 77;

struct Reply {
    uint32_t requestId;
    int opcode;
    int result;
};

class Dispatch : public testing::Test {
protected:
    void SetUp() override {
        fakes::reset();
        ASSERT_TRUE(kernel::mountEcryptfs(kMount, kUser, kPartition));
        ASSERT_TRUE(testfs::writeFile(kFile, "secret"));
        mInode = kernel::inodeOf(kFile);
        liblog_clear();
    }

    Reply dispatch(uint32_t opcode, uint64_t inode, int partition = kPartition, uint32_t id = 5) {
        std::string datagram =
            hostkernel::encodeKernelRequest(kernel::makeRequest(id, opcode, kUser, partition, inode, kPid));
        std::string payload = datagram.substr(16);
        unsigned short length = 0;
        char* reply = FsHandlerThread::handleMessage(&payload[0], &length);
        EXPECT_EQ(length, 8);
        if (!reply) return {0, -1, -1000};
        Reply out{netlinkwire::getU32(reply), static_cast<unsigned char>(reply[4]),
                  static_cast<int16_t>(netlinkwire::getU16(reply + 6))};
        free(reply);
        return out;
    }
    int found(uint32_t opcode) { return dispatch(opcode, mInode).result; }
    int notFound(uint32_t opcode) { return dispatch(opcode, mInode, kPartition + 1).result; }

    std::string auditLine(int opcode) {
        return "DLP_LIBPELK : AUDIT: " + std::to_string(kUser) + " " + std::to_string(opcode) + " " +
               std::to_string(kPid) + " " + std::to_string(static_cast<int>(mInode)) + " " + kFile + "\n";
    }
    static int logged(const std::string& text, int priority = -1) { return liblog_count(text, "pelkd", priority); }

    unsigned long mInode = 0;
};

TEST_F(Dispatch, UnknownOpcodeIsUnsupportedWhenFoundAndMissingOtherwise) {
    EXPECT_EQ(found(12), -95);
    EXPECT_EQ(notFound(12), -2);
    EXPECT_EQ(FsHandlerThread::handleMessageDLP(30, kUser, kPid, mInode, const_cast<char*>(kFile)), -95);
    EXPECT_EQ(FsHandlerThread::handleMessageAudit(54, kUser, kPid, const_cast<char*>(kFile)), -95);
    EXPECT_EQ(logged("AUDIT: unsupported audit opcode: [54]\n", ANDROID_LOG_ERROR), 1);
    unsigned short length = 0;
    EXPECT_EQ(FsHandlerThread::handleMessage(nullptr, &length), nullptr);
}

TEST_F(Dispatch, ReplyEchoesTheIdTheOpcodesLowByteAndLogsIt) {
    Reply reply = dispatch(0x10a, mInode, kPartition, 0xdeadbeef);
    EXPECT_EQ(reply.requestId, 0xdeadbeefu);
    EXPECT_EQ(reply.opcode, 0x0a);
    EXPECT_EQ(reply.result, -95);
    EXPECT_EQ(logged("handleMessage :: partition_id[3] ino[" + std::to_string(mInode) + "]", ANDROID_LOG_ERROR), 1);
    EXPECT_EQ(logged(std::string("find_path_by_inode found : ") + kFile + "(" + std::to_string(mInode) + ")"), 1);
    EXPECT_EQ(logged("result : req_id[-559038737], opcode[10] ret[-95]", ANDROID_LOG_ERROR), 1);
}

TEST_F(Dispatch, MarkOpcodesWalkTheFoundTreeForTheUser) {
    EXPECT_EQ(found(10), 0);
    EXPECT_EQ(fakes::callsOf("set_sensitive"), std::vector<std::string>{std::string("set_sensitive 10 ") + kFile});
    EXPECT_EQ(found(11), 0);
    EXPECT_EQ(fakes::callsOf("set_protected"), std::vector<std::string>{std::string("set_protected ") + kFile});
    fakes::reset();
    EXPECT_EQ(notFound(10), -2);
    EXPECT_TRUE(fakes::library().calls.empty());
}

TEST_F(Dispatch, OpenRecordsTheFileAndAuditsOnlyWithItsBit) {
    EXPECT_EQ(found(21), 0);
    EXPECT_EQ(fakes::callsOf("addOrUpdateMapEntry"),
              std::vector<std::string>{"addOrUpdateMapEntry 77 " + std::string(kFile)});
    EXPECT_EQ(logged("DLP_LIBPELK : <handleMessageAuditDLP> Audit logging is not enabled for opcode[21], logState[0]",
                     ANDROID_LOG_DEBUG),
              1);
    EXPECT_EQ(logged(auditLine(21)), 0);
    fakes::library().auditState = 2;
    EXPECT_EQ(found(21), 0);
    EXPECT_EQ(logged(auditLine(21), ANDROID_LOG_DEBUG), 1);
    EXPECT_EQ(notFound(21), -2);
}

TEST_F(Dispatch, CloseAnswersZeroWithoutAnyAuditLine) {
    fakes::library().auditState = 0xff;
    EXPECT_EQ(found(22), 0);
    EXPECT_EQ(logged("DLP_LIBPELK :  pid[77] closed file " + std::string(kFile) + "\n"), 1);
    EXPECT_FALSE(liblog_any_contains("AUDIT"));
    // Asked directly, 22 is an opcode the audit does not know.
    FsHandlerThread::handleNotifyAuditDLP(22, kUser, kPid, mInode, const_cast<char*>(kFile));
    EXPECT_EQ(logged("DLP_LIBPELK : AUDIT: unsupported DLP audit opcode: [22]\n", ANDROID_LOG_ERROR), 1);
    EXPECT_EQ(
        logged("DLP_LIBPELK : <handleMessageAuditDLP> Audit logging is not enabled for opcode[22], logState[255]"), 1);
}

TEST_F(Dispatch, WhitelistedInitStoresTheExpiryAndRemembersAVanishedFile) {
    timeval now{};
    gettimeofday(&now, nullptr);
    EXPECT_EQ(found(23), 0);
    EXPECT_GE(fakes::library().lastExpiry, now.tv_sec + 3600);
    EXPECT_LE(fakes::library().lastExpiry, now.tv_sec + 3660);
    EXPECT_EQ(fakes::callsOf("get_expiryAfter_time"), std::vector<std::string>{"get_expiryAfter_time 10"});
    EXPECT_EQ(logged("DLP_LIBPELK : setxattr OK\n"), 1);

    fakes::library().dlpExpiryResult = -1;
    fakes::library().dlpExpiryErrno = ENOENT;
    fakes::library().putPendingResult = false;
    EXPECT_EQ(found(23), 0);
    EXPECT_EQ(
        logged("DLP_LIBPELK : setxattr(" + std::string(kFile) + ", setxattr error - 2, No such file or directory\n",
               ANDROID_LOG_ERROR),
        1);
    EXPECT_EQ(fakes::callsOf("putPendingInodeValue").size(), 1u);
    EXPECT_EQ(logged("DLP_LIBPELK :  inode_path transition method failed! Unable to put in map!", ANDROID_LOG_ERROR),
              1);
}

TEST_F(Dispatch, InitWhoseFileIsNotFoundIsRememberedAsPending) {
    EXPECT_EQ(notFound(23), -2);
    EXPECT_EQ(fakes::callsOf("putPendingInodeValue"),
              std::vector<std::string>{"putPendingInodeValue " + std::to_string(mInode) + " 77"});
    std::string pendingLine = "DLP_LIBPELK :  find_path_by_inode failed in init/init_restricted case, put inode[" +
                              std::to_string(mInode) + "] in map";
    EXPECT_EQ(logged(pendingLine), 1);
    EXPECT_EQ(logged("DLP_LIBPELK :  inode_path transition handled successfully !", ANDROID_LOG_DEBUG), 1);
    fakes::library().putPendingResult = false;
    EXPECT_EQ(notFound(24), -2);
    EXPECT_EQ(logged("DLP_LIBPELK :  inode_path transition method failed! Unable to put in map!", ANDROID_LOG_ERROR),
              1);
}

TEST_F(Dispatch, RestrictedInitOfAMissingFileIsRememberedAsPending) {
    fakes::library().setExpiryResult = 2;
    fakes::library().auditState = 1;
    EXPECT_EQ(found(24), 0);
    EXPECT_EQ(fakes::callsOf("setExpiryforFile"),
              std::vector<std::string>{"setExpiryforFile 77 " + std::string(kFile) + " 10"});
    EXPECT_EQ(logged("DLP_LIBPELK :  Error :: ENOENT from INIT_RESTRICTED", ANDROID_LOG_ERROR), 1);
    EXPECT_EQ(fakes::callsOf("putPendingInodeValue").size(), 1u);
    EXPECT_EQ(logged(auditLine(24)), 1);
}

TEST_F(Dispatch, ExpiredFileIsDeletedAndAlwaysAudited) {
    EXPECT_EQ(found(25), 0);
    EXPECT_FALSE(testfs::exists(kFile));
    EXPECT_EQ(logged(auditLine(25)), 1);
    ASSERT_TRUE(testfs::writeFile(kFile, "again"));
    mInode = kernel::inodeOf(kFile);
    EXPECT_EQ(found(29), 0);
    EXPECT_FALSE(testfs::exists(kFile));
    EXPECT_EQ(logged(auditLine(29)), 1);
}

TEST_F(Dispatch, RenameAppliesThePendingPidsExpiryOnlyWhenThereIsOne) {
    fakes::library().auditState = 4;
    EXPECT_EQ(found(26), 0);
    EXPECT_TRUE(fakes::callsOf("setExpiryforFile").empty());
    EXPECT_TRUE(fakes::callsOf("clearPendingInode").empty());
    EXPECT_EQ(logged(auditLine(26)), 1);

    fakes::library().pidByInode = 9;
    EXPECT_EQ(found(26), 0);
    EXPECT_EQ(fakes::callsOf("setExpiryforFile"),
              std::vector<std::string>{"setExpiryforFile 9 " + std::string(kFile) + " 10"});
    EXPECT_EQ(fakes::callsOf("clearPendingInode").size(), 1u);
    EXPECT_EQ(logged("DLP_LIBPELK :  inode is cleared from map"), 1);

    fakes::reset();
    EXPECT_EQ(notFound(26), -2);
    EXPECT_TRUE(fakes::library().calls.empty());
    EXPECT_EQ(
        logged("DLP_LIBPELK :  find_path_by_inode failed in rename case,inode[" + std::to_string(mInode) + "] in map"),
        1);
}

TEST_F(Dispatch, AuditOnlyOpcodesFollowTheirBits) {
    fakes::library().auditState = 16;
    EXPECT_EQ(found(27), 0);
    EXPECT_EQ(found(28), 0);
    EXPECT_EQ(logged(auditLine(27)), 1);
    EXPECT_EQ(logged(auditLine(28)), 0);
}

TEST_F(Dispatch, AuditOpcodesLogThePathOrUnknownFile) {
    EXPECT_EQ(found(51), 0);
    EXPECT_EQ(found(52), 0);
    EXPECT_EQ(notFound(53), -2);
    EXPECT_EQ(logged("AUDIT: user_id[10]/pid[77] failed to encrypt [" + std::string(kFile) + "]\n", ANDROID_LOG_ERROR),
              1);
    EXPECT_EQ(logged("AUDIT: user_id[10]/pid[77] failed to decrypt [" + std::string(kFile) + "]\n", ANDROID_LOG_ERROR),
              1);
    EXPECT_EQ(logged("AUDIT: user_id[10]/pid[77] failed to access file [unknown file]\n", ANDROID_LOG_ERROR), 1);
}

TEST_F(Dispatch, AuditLineShowsTheInodesLowThirtyTwoBitsSigned) {
    char path[] = "/p";
    FsHandlerThread::handleNotifyAuditDLP(25, kUser, kPid, 4294967296UL, path);
    FsHandlerThread::handleNotifyAuditDLP(25, kUser, kPid, 4294967295UL, path);
    EXPECT_EQ(logged("DLP_LIBPELK : AUDIT: 10 25 77 0 /p\n"), 1);
    EXPECT_EQ(logged("DLP_LIBPELK : AUDIT: 10 25 77 -1 /p\n"), 1);
}

TEST_F(Dispatch, InodePathTransitionAlone) {
    EXPECT_EQ(handle_inode_path_transition(23, kPid, 42), 0);
    EXPECT_EQ(handle_inode_path_transition(26, kPid, 42), 0);
    EXPECT_EQ(handle_inode_path_transition(22, kPid, 42), -1);
    fakes::library().putPendingResult = false;
    EXPECT_EQ(handle_inode_path_transition(24, kPid, 42), -1);
    EXPECT_EQ(fakes::callsOf("putPendingInodeValue").size(), 2u);
}

}  // namespace
