// Package directories carried from one user's data area into another's, the
// package data paths, and the size of directory trees.
#include <chamber/chamber_records.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <stdio.h>

#include <cerrno>
#include <string>

#include "devprofile/DeviceProfile.h"
#include "partition/Partition.h"
#include "support/Files.h"

using namespace testfs;

namespace {

void makePackage(const std::string& path, uid_t uid, mode_t mode) {
    makeDirs(path);
    chown(path.c_str(), uid, uid);
    chmod(path.c_str(), mode);
}

class SyncPkgDir : public testing::Test {
protected:
    void SetUp() override {
        devprofile::set("user.150", "zanth");
        makePackage(src_ + "/com.example.app", 10057, 0771);
        makePackage(src_ + "/com.existing.app", 10060, 0700);
        makePackage(src_ + "/cache_dir", 10070, 0700);  // no package name
        ASSERT_TRUE(writeFile(src_ + "/notes.txt"));
        makePackage(dst_ + "/com.existing.app", 15099999, 0700);
        makePackage(dst_ + "/com.orphan", 15010001, 0700);
    }
    Partition owner_{0, 'e', nullptr, false};
    Partition container_{150, 'e', nullptr, false};
    const std::string src_ = owner_.mMntPath;
    const std::string dst_ = container_.mMntPath;
};

TEST_F(SyncPkgDir, NewPackagesGetTheAppUidOfTheTargetUserAndTheSourceMode) {
    Umask relaxed(0);
    ASSERT_EQ(container_.syncPkgDir(&owner_), 0);

    struct stat made = statOf(dst_ + "/com.example.app");
    EXPECT_TRUE(S_ISDIR(made.st_mode));
    EXPECT_EQ(made.st_uid, 15010057u);
    EXPECT_EQ(made.st_gid, 15010057u);
    EXPECT_EQ(made.st_mode & 07777, 0771u);
    EXPECT_EQ(statOf(dst_ + "/com.existing.app").st_uid, 15099999u);  // both sides had it
    EXPECT_TRUE(exists(dst_ + "/com.orphan"));                        // never looked at
    EXPECT_FALSE(exists(dst_ + "/notes.txt"));
    // The category library does not know cache_dir: it is made, then taken back.
    EXPECT_FALSE(exists(dst_ + "/cache_dir"));
    EXPECT_EQ(liblog_count("Not package or no information.. " + src_ + "/cache_dir", "pelkd", ANDROID_LOG_WARN), 1);

    auto calls = chamber_category_calls();
    ASSERT_EQ(calls.size(), 2u);
    for (const auto& c : calls) EXPECT_EQ(c.userId, 150);
    EXPECT_EQ(
        liblog_count("Creating pkg directory " + dst_ + "/com.example.app [uid:15010057/gid:15010057] appId:10057",
                     "pelkd", ANDROID_LOG_INFO),
        1);
    EXPECT_EQ(liblog_count(" Ignoring files " + src_ + "/notes.txt ==> " + dst_ + "/notes.txt (0,-1) ", "pelkd"), 1);
}

TEST_F(SyncPkgDir, ACategoryFailureEndsTheSyncAndNonContainersSkipIt) {
    devprofile::failNext("setCategory", 5);
    EXPECT_EQ(container_.syncPkgDir(&owner_), -1);

    devprofile::set("user.150", "");
    EXPECT_EQ(container_.syncPkgDir(&owner_), 0);
    EXPECT_TRUE(exists(dst_ + "/cache_dir"));  // no category check for a non-container
}

TEST_F(SyncPkgDir, OnlyACeDataSourceIsAccepted) {
    Partition deData(0, 'q', nullptr, false);
    makePackage(std::string(deData.mMntPath) + "/com.de.app", 10080, 0700);
    EXPECT_EQ(container_.syncPkgDir(&deData), -EINVAL);
    EXPECT_EQ(container_.syncPkgDir(nullptr), -EINVAL);
    EXPECT_FALSE(exists(dst_ + "/com.de.app"));
    EXPECT_FALSE(exists(dst_ + "/com.example.app"));
}

TEST(SyncPkgDirSource, MissingSourcePassesAndAFileSourceIsRefused) {
    Partition owner(7, 'e', nullptr, false);
    Partition container(150, 'e', nullptr, false);
    const std::string src = owner.mMntPath;
    EXPECT_EQ(container.syncPkgDir(&owner), 0);
    EXPECT_EQ(liblog_count("source : <" + src + "> is a dangling link: ", "pelkd", ANDROID_LOG_INFO), 1);
    EXPECT_EQ(liblog_count("returned error <0> errno 2 No such file or directory", "pelkd", ANDROID_LOG_ERROR), 1);
    EXPECT_EQ(liblog_count("Link pass\n", "pelkd", ANDROID_LOG_INFO), 1);

    ASSERT_TRUE(writeFile(src));
    EXPECT_EQ(container.syncPkgDir(&owner), -EINVAL);
    EXPECT_TRUE(liblog_any_contains(" MODE error 000081a4"));
}

TEST(PackagePath, UserAreasNameThePackageMediaAreasTheirDataFolder) {
    char out[Partition::PATH_SIZE];
    Partition mirelUser(150, 'h', nullptr, true);
    mirelUser.getPkgPath("com.p", out, sizeof(out));
    EXPECT_EQ(std::string(out), std::string(mirelUser.mMntPath) + "/150/com.p");

    Partition mirelMedia(150, 'i', nullptr, true);
    mirelMedia.getPkgPath("com.p", out, sizeof(out));
    EXPECT_EQ(std::string(out), std::string(mirelMedia.mMntPath) + "/150/Android/data/");

    Partition data(150, 'e', nullptr, false);
    data.getPkgPath("com.p", out, sizeof(out));
    EXPECT_EQ(std::string(out), std::string(data.mMntPath) + "/com.p");

    Partition sdcard(150, 'f', nullptr, false);
    sdcard.getPkgPath("com.p", out, sizeof(out));
    EXPECT_EQ(std::string(out), std::string(sdcard.mMntPath) + "/Android/data/");

    char small[8];
    data.getPkgPath("com.p", small, sizeof(small));
    EXPECT_EQ(std::string(small), std::string(data.mMntPath).substr(0, 7));
}

TEST(DirectorySize, MatchesDuWithoutFollowingLinks) {
    Partition p(0, "/data/t/src", "/data/t/mnt", false);
    ASSERT_TRUE(writeFile("/data/size/a/b/big", 100000));
    ASSERT_TRUE(writeFile("/data/size/a/small", 10));
    ASSERT_TRUE(writeFile("/data/size/empty", 0));
    ASSERT_TRUE(writeFile("/data/outside/huge", 1 << 20));
    ASSERT_EQ(symlink("/data/outside", "/data/size/a/link"), 0);

    FILE* du = popen("du -s -B1 /data/size", "r");
    ASSERT_NE(du, nullptr);
    unsigned long long duBytes = 0;
    ASSERT_EQ(fscanf(du, "%llu", &duBytes), 1);
    pclose(du);

    const uint64_t withSelf = p.getDirectorySize("/data/size", 1);
    EXPECT_EQ(withSelf, duBytes);
    struct stat self = statOf("/data/size");
    EXPECT_EQ(withSelf - p.getDirectorySize("/data/size", 0), p.stat_size(&self));
    EXPECT_LT(withSelf, 1u << 20);

    EXPECT_EQ(p.getDirectorySize("/data/none", 1), 0u);
    EXPECT_EQ(liblog_count("Failed to open /data/none", "pelkd", ANDROID_LOG_ERROR, LOG_ID_MAIN), 1);
}

TEST(DirectorySize, BlocksAreRoundedUpToTheBlockSize) {
    Partition p(0, "/data/t/src", "/data/t/mnt", false);
    struct stat st = {};
    st.st_blocks = 1;
    st.st_blksize = 4096;
    EXPECT_EQ(p.stat_size(&st), 4096u);
    st.st_blksize = 0;
    EXPECT_EQ(p.stat_size(&st), 512u);
}

}  // namespace
