#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>

#include <string>
#include <vector>

#include "devprofile/DeviceProfile.h"
#include "partition/Partition.h"

namespace {

struct Expected {
    int type;
    const char* src;
    const char* mnt;
    uint32_t uid;
    uint32_t gid;
    uint32_t mode;
};

// The layout for user 150 on a device with file-based encryption.
const Expected kFbeLayout[] = {
    {'e', "/data/zanth/data/150", "/data/user/150", 1000, 1000, 0771},
    {'f', "/data/zanth/sdcard/150", "/mnt/runtime/default/emulated/150", 1023, 1023, 0770},
    {'g', "/data/privatemode", "/data/privatemode", 1000, 1000, 0771},
    {'h', "/data/zanth/secure_fs/enc_user", "/data/enc_user", 1000, 1000, 0771},
    {'i', "/data/zanth/secure_fs/enc_media", "/mnt/shell/enc_emulated", 1000, 1000, 0771},
    {'j', "/mnt/zanth/default/zanth-emulated/150", "/mnt/zanth/default/emulated/150", 1000, 1000, 0771},
    {'k', "/mnt/zanth/read/zanth-emulated/150", "/mnt/zanth/read/emulated/150", 1000, 1000, 0771},
    {'l', "/mnt/zanth/write/zanth-emulated/150", "/mnt/zanth/write/emulated/150", 1000, 1000, 0771},
    {'m', "/data/zanth/tmp_sdcard", "/mnt/zanth", 1000, 1000, 0771},
    {'n', "/mnt/shell/private_default", "/mnt/shell/privatemode/default", 1000, 1000, 0771},
    {'o', "/mnt/shell/private_read", "/mnt/shell/privatemode/read", 1000, 1000, 0771},
    {'p', "/mnt/shell/private_write", "/mnt/shell/privatemode/write", 1000, 1000, 0771},
    {'q', "/data/zanth/data_de/150", "/data/user_de/150", 1000, 1000, 0771},
    {'r', "/data/zanth/system_de/150", "/data/system_de/150", 1000, 1000, 0770},
    {'s', "/data/zanth/misc_de/150", "/data/misc_de/150", 1000, 9998, 01771},
    {'t', "/data/zanth/system_ce/150", "/data/system_ce/150", 1000, 1000, 0770},
    {'u', "/data/zanth/misc_ce/150", "/data/misc_ce/150", 1000, 9998, 01771},
};

void expectArea(const Partition& p, const Expected& e, int user = 150) {
    SCOPED_TRACE(std::string("type ") + static_cast<char>(e.type));
    EXPECT_EQ(p.mType, e.type);
    EXPECT_EQ(p.mUserId, user);
    EXPECT_STREQ(p.mSrcPath, e.src);
    EXPECT_STREQ(p.mMntPath, e.mnt);
    EXPECT_EQ(p.mUid, e.uid);
    EXPECT_EQ(p.mGid, e.gid);
    EXPECT_EQ(p.mMode, e.mode);
    EXPECT_STREQ(p.mWorkPath, "");
}

// The texts of the "pelkd" DEBUG records of the system buffer, in order.
std::vector<std::string> systemDebugLines() {
    std::vector<std::string> lines;
    for (const LogRecord& r : liblog_records())
        if (r.buffer == LOG_ID_SYSTEM && r.priority == ANDROID_LOG_DEBUG && r.tag == "pelkd") lines.push_back(r.text);
    return lines;
}

class PartitionModel : public testing::Test {
protected:
    void SetUp() override { liblog_clear(); }
};

}  // namespace

TEST_F(PartitionModel, EveryTypeHasItsPathsOwnerAndModeWithFbe) {
    ASSERT_TRUE(devprofile::set("fbe", "1"));
    for (const Expected& e : kFbeLayout) expectArea(Partition(150, e.type, nullptr, false), e);
}

TEST_F(PartitionModel, WithoutFbeOnlySdcardAndMirelMediaStackOnTheirBackingDirectory) {
    ASSERT_TRUE(devprofile::set("fbe", "0"));
    for (Expected e : kFbeLayout) {
        if (e.type == 'f') e.mnt = "/data/zanth/sdcard/150";
        if (e.type == 'i') e.mnt = "/data/zanth/secure_fs/enc_media";
        expectArea(Partition(150, e.type, "ignored", true), e);
    }
}

TEST_F(PartitionModel, EncryptionModeIsAskedAtEachConstruction) {
    ASSERT_TRUE(devprofile::set("fbe", "1"));
    Partition before(10, PARTITION_CE_SDCARD, nullptr, false);
    ASSERT_TRUE(devprofile::set("fbe", "0"));
    Partition after(10, PARTITION_CE_SDCARD, nullptr, false);
    EXPECT_STREQ(before.mMntPath, "/mnt/runtime/default/emulated/10");
    EXPECT_STREQ(after.mMntPath, "/data/zanth/sdcard/10");
}

TEST_F(PartitionModel, DeviceWideAreasIgnoreTheUser) {
    for (int type : {'g', 'h', 'i', 'm', 'n', 'o', 'p'}) {
        Partition owner(0, type, nullptr, false);
        Partition other(2147483647, type, nullptr, false);
        EXPECT_STREQ(owner.mSrcPath, other.mSrcPath);
        EXPECT_STREQ(owner.mMntPath, other.mMntPath);
    }
}

TEST_F(PartitionModel, UnknownTypesKeepEmptyPathsAndDefaultsAndStillLog) {
    for (int type : {100, 118}) {
        liblog_clear();
        {
            Partition p(150, type, nullptr, false);
            EXPECT_EQ(p.mType, type);
            EXPECT_STREQ(p.mSrcPath, "");
            EXPECT_STREQ(p.mMntPath, "");
            EXPECT_EQ(p.mUid, 1000u);
            EXPECT_EQ(p.mGid, 1000u);
            EXPECT_EQ(p.mMode, 0771u);
        }
        EXPECT_EQ(systemDebugLines(),
                  (std::vector<std::string>{"Partition obj created", "Partition::dump============== 150",
                                            "Partition::mType > INTERNAL-SDCARD mSrcPath >  mMntPath > ",
                                            "Partition::MIREL > not supported", "deleting Partition object."}));
    }
}

TEST_F(PartitionModel, CreationAndDestructionLogTheRecord) {
    { Partition p(150, PARTITION_CE_DATA, nullptr, true); }
    EXPECT_EQ(systemDebugLines(),
              (std::vector<std::string>{"Partition obj created", "Partition::dump============== 150",
                                        "Partition::mType > PRIVATE-DATA mSrcPath > /data/zanth/data/150 "
                                        "mMntPath > /data/user/150",
                                        "Partition::MIREL > supported", "deleting Partition object."}));
    // Nothing of a Partition goes to another buffer or priority.
    EXPECT_EQ(systemDebugLines().size(), liblog_records().size());
}

TEST_F(PartitionModel, DumpLabelsEveryTypeButCeDataAsSdcard) {
    Partition p(150, PARTITION_DE_DATA, nullptr, false);
    liblog_clear();
    p.dump();
    EXPECT_EQ(systemDebugLines(),
              (std::vector<std::string>{"Partition::dump============== 150",
                                        "Partition::mType > INTERNAL-SDCARD mSrcPath > /data/zanth/data_de/150 "
                                        "mMntPath > /data/user_de/150",
                                        "Partition::MIREL > not supported"}));
}

TEST_F(PartitionModel, ExplicitPathsAreAlwaysPrivateModeWithDefaults) {
    Partition p(7, "/data/zanth/data/7", "/data/user/7", true);
    Expected e{'g', "/data/zanth/data/7", "/data/user/7", 1000, 1000, 0771};
    expectArea(p, e, 7);
    EXPECT_TRUE(p.mMirelSupported);
    EXPECT_EQ(liblog_count("Partition obj created", "pelkd", ANDROID_LOG_DEBUG, LOG_ID_SYSTEM), 1);
    EXPECT_EQ(liblog_count("Partition::mType > INTERNAL-SDCARD mSrcPath > /data/zanth/data/7 mMntPath > /data/user/7",
                           "pelkd", ANDROID_LOG_DEBUG, LOG_ID_SYSTEM),
              1);
}

TEST_F(PartitionModel, ExplicitPathsAreCutTo4095Characters) {
    const std::string longSrc(5000, 's');
    const std::string exact(4095, 'm');
    Partition p(0, longSrc.c_str(), exact.c_str(), false);
    EXPECT_EQ(std::string(p.mSrcPath), longSrc.substr(0, 4095));
    EXPECT_EQ(std::string(p.mMntPath), exact);

    Partition none(0, nullptr, nullptr, false);
    EXPECT_STREQ(none.mSrcPath, "");
    EXPECT_STREQ(none.mMntPath, "");
}
