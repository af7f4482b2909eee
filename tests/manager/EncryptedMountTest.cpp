// Mounting areas through the container encryption library: real mounts of
// the lower directory that a second key cannot open, the password form,
// and the mount table as the device shows it.
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <stdio.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include <crypt/ecryptfs_records.h>
#include <devprofile/DeviceProfile.h>
#include <persona/persona.h>

#include "SdcardRecords.h"
#include "manager/Pelk.h"
#include "support/KeyStoreFiles.h"
#include "support/Mounts.h"

namespace {

// A raw key as the manager hands it on: 32 bytes and a terminating zero.
struct Key {
    Key() {
        keytest::Bytes bytes = keytest::randomBytes(32);
        std::copy(bytes.begin(), bytes.end(), data);
        data[32] = 0;
    }
    char data[33];
};

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The device's mount table, as programs of the device read it.
std::string mountTable() {
    std::string table;
    FILE* f = fopen("/proc/mounts", "re");
    char line[4096];
    while (f && fgets(line, sizeof(line), f)) table += line;
    if (f) fclose(f);
    return table;
}

std::string tableLineOf(const std::string& point) {
    std::string table = mountTable();
    size_t at = table.find(" " + point + " ");
    if (at == std::string::npos) return "";
    size_t start = table.rfind('\n', at);
    start = start == std::string::npos ? 0 : start + 1;
    return table.substr(start, table.find('\n', at) - start);
}

class EncryptedMount : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(mounts::makeDirs(mData.mSrcPath));
        ASSERT_TRUE(mounts::makeDirs(mData.mMntPath));
        liblog_clear();
    }
    Pelk mPelk{getpid()};
    Partition mData{10, PARTITION_CE_DATA, nullptr, false};
};

TEST_F(EncryptedMount, TheSameKeyOpensTheSameBytesAgain) {
    Key key;
    ASSERT_EQ(0, mPelk.ecryptfsMount(&mData, key.data, true));
    EXPECT_TRUE(mData.isMounted());
    std::string line = tableLineOf("/data/user/10");
    EXPECT_NE(std::string::npos, line.find(" ecryptfs ")) << line;
    EXPECT_NE(std::string::npos, line.find("partition_id=1")) << line;
    EXPECT_EQ(1, liblog_count(">>>> mounting...\n", "pelkd", ANDROID_LOG_ERROR, LOG_ID_SYSTEM));
    EXPECT_EQ(1, liblog_count("Mounting </data/user/10>", "pelkd", ANDROID_LOG_INFO, LOG_ID_SYSTEM));
    EXPECT_EQ(1, liblog_count("ecryptfs mounting...", "pelkd", ANDROID_LOG_INFO, LOG_ID_SYSTEM));

    std::string payload(100000, '\0');
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(i * 31 + 7);
    std::ofstream("/data/user/10/app.db", std::ios::binary) << payload;

    ASSERT_EQ(0, mPelk.unmount(&mData));
    EXPECT_FALSE(mData.isMounted());
    EXPECT_FALSE(std::ifstream("/data/user/10/app.db").good()) << "nothing is left at the mount path";

    ASSERT_EQ(0, mPelk.ecryptfsMount(&mData, key.data, true));
    EXPECT_EQ(payload, readFile("/data/user/10/app.db"));
    keytest::expectLogFreeOf(keytest::Bytes(key.data, key.data + 32));
}

TEST_F(EncryptedMount, AnotherKeyIsRefusedAndNothingIsMounted) {
    Key first, second;
    ASSERT_EQ(0, mPelk.ecryptfsMount(&mData, first.data, true));
    ASSERT_EQ(0, mPelk.unmount(&mData));
    std::string before = mountTable();

    EXPECT_NE(0, mPelk.ecryptfsMount(&mData, second.data, true));
    EXPECT_FALSE(mData.isMounted());
    EXPECT_EQ(before, mountTable());
}

TEST_F(EncryptedMount, AMountedAreaAnswersZeroInBothModesWithoutAPassword) {
    Key key;
    ASSERT_EQ(0, mPelk.ecryptfsMount(&mData, key.data, true));
    ecryptfs_clear();
    liblog_clear();
    EXPECT_EQ(0, mPelk.ecryptfsMount(&mData, "not the password", false));
    EXPECT_EQ(0, mPelk.ecryptfsMount(&mData, "another key bytes...............", true));
    EXPECT_EQ(2, liblog_count("partition is already mounted", "pelkd", ANDROID_LOG_DEBUG, LOG_ID_SYSTEM));
    EXPECT_FALSE(liblog_any_contains("EDK"));
    EXPECT_TRUE(ecryptfs_calls().empty()) << "the library is not asked";
}

TEST_F(EncryptedMount, PasswordModeOpensTheKeyFileFirst) {
    EXPECT_EQ(-1, mPelk.ecryptfsMount(&mData, "pass word", false));
    EXPECT_EQ(1, liblog_count("EDK No available :: Error\n", "pelkd", ANDROID_LOG_ERROR, LOG_ID_SYSTEM));

    ASSERT_EQ(0, mPelk.createKey(10, "pass word", 1));
    EXPECT_EQ(-1, mPelk.ecryptfsMount(&mData, "wrong word", false));
    EXPECT_EQ(1, liblog_count("EDK verify failed :: Error\n", "pelkd", ANDROID_LOG_ERROR, LOG_ID_SYSTEM));
    EXPECT_FALSE(mData.isMounted());
    EXPECT_TRUE(ecryptfs_calls().empty());

    EXPECT_EQ(0, mPelk.ecryptfsMount(&mData, "pass word", false));
    EXPECT_TRUE(mData.isMounted());
    auto calls = ecryptfs_calls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ("mount_ecryptfs_withpwd", calls[0].function);
    EXPECT_EQ(-1, calls[0].keyIndex);
    EXPECT_EQ(1, calls[0].mode);
    EXPECT_EQ('e', calls[0].type);
    EXPECT_EQ("/data/zanth/data/10", calls[0].lower);
    EXPECT_FALSE(liblog_any_contains("pass word"));
}

TEST_F(EncryptedMount, PasswordModeStartsNoViews) {
    devprofile::set("fbe", "0");
    Partition sdcard(10, PARTITION_CE_SDCARD, nullptr, true);
    ASSERT_TRUE(mounts::makeDirs(sdcard.mSrcPath));
    ASSERT_EQ(0, mPelk.createKey(10, "pass word", 1));
    EXPECT_EQ(0, mPelk.ecryptfsMount(&sdcard, "pass word", false));
    EXPECT_TRUE(sim::sdcardRuns().empty());
    EXPECT_EQ(0, access("/data/zanth/sdcard/10/Chamber", F_OK) == 0 ? 1 : 0) << "no chamber either";
}

TEST_F(EncryptedMount, BadAreasMountNothing) {
    Key key;
    std::string before = mountTable();
    EXPECT_EQ(-1, mPelk.ecryptfsMount(nullptr, key.data, true));
    EXPECT_EQ(1, liblog_count("given partition obj is NULL", "pelkd", ANDROID_LOG_ERROR));

    // An unknown type has empty paths: never handed to the library.
    Partition unknown(10, 'z', nullptr, false);
    EXPECT_EQ(-1, mPelk.ecryptfsMount(&unknown, key.data, true));
    EXPECT_TRUE(ecryptfs_calls().empty());

    Partition missing(11, PARTITION_CE_DATA, nullptr, false);  // no lower directory
    EXPECT_NE(0, mPelk.ecryptfsMount(&missing, key.data, true));
    EXPECT_EQ(1, liblog_count("Mounting </data/user/11>"));
    EXPECT_EQ(before, mountTable());
}

TEST_F(EncryptedMount, AnSdcardAreaGetsItsChamberAndViews) {
    devprofile::set("fbe", "1");
    devprofile::set("user.10", "zanth");
    Partition sdcard(10, PARTITION_CE_SDCARD, nullptr, true);
    ASSERT_TRUE(mounts::makeDirs(sdcard.mSrcPath));
    ASSERT_TRUE(mounts::makeDirs(sdcard.mMntPath));
    Key key;
    ASSERT_EQ(0, mPelk.ecryptfsMount(&sdcard, key.data, true));
    EXPECT_EQ(0, access("/mnt/runtime/default/emulated/10/Chamber", F_OK));
    EXPECT_EQ(0, access("/data/zanth/sdcard/10/Chamber", F_OK)) << "made through the mount";
    auto runs = sim::sdcardRuns();
    ASSERT_EQ(1u, runs.size());
    EXPECT_EQ(0, runs[0].status);
    for (const char* view :
         {"/mnt/zanth/default/emulated/10", "/mnt/zanth/read/emulated/10", "/mnt/zanth/write/emulated/10"}) {
        EXPECT_EQ(1, isMountedPath(view)) << view;
    }
    auto calls = ecryptfs_calls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(2, calls[0].mode);
    EXPECT_EQ(1, calls[0].flag);

    // A secure-folder container gets no chamber.
    devprofile::set("user.11", "strond");
    Partition strond(11, PARTITION_CE_SDCARD, nullptr, true);
    ASSERT_TRUE(mounts::makeDirs(strond.mSrcPath));
    ASSERT_TRUE(mounts::makeDirs(strond.mMntPath));
    ASSERT_EQ(0, mPelk.ecryptfsMount(&strond, key.data, true));
    EXPECT_NE(0, access("/data/zanth/sdcard/11/Chamber", F_OK));
}

TEST_F(EncryptedMount, ARefusedSdcardMountStillStartsItsViews) {
    devprofile::set("fbe", "1");
    Partition sdcard(10, PARTITION_CE_SDCARD, nullptr, false);
    ASSERT_TRUE(mounts::makeDirs(sdcard.mSrcPath));
    ASSERT_TRUE(mounts::makeDirs(sdcard.mMntPath));
    devprofile::failNext("mount_ecryptfs");
    Key key;
    // The mount's own failure is the answer; the views come up regardless,
    // in the platform's order.
    EXPECT_EQ(-1, mPelk.ecryptfsMount(&sdcard, key.data, true));
    EXPECT_FALSE(sdcard.isMounted());
    EXPECT_EQ(1u, sim::sdcardRuns().size());
}

}  // namespace
