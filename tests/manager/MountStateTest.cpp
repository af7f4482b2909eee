// The manager's questions about mounted storage, asked against real mounts
// made inside the device.
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <sys/wait.h>

#include <devprofile/DeviceProfile.h>

#include "manager/Pelk.h"
#include "support/Mounts.h"

namespace {

using mounts::areaPath;
using mounts::mountAreas;
using mounts::mountTmpfs;

class MountState : public testing::Test {
protected:
    void SetUp() override {
        Pelk::isUnlockedByCe.clear();
        devprofile::set("fbe", "0");
        liblog_clear();
    }
    Pelk mPelk{getpid()};
};

TEST_F(MountState, PartitionMatchesTheMountPointExactly) {
    Partition user10(10, PARTITION_CE_DATA, nullptr, false);
    Partition user1(1, PARTITION_CE_DATA, nullptr, false);
    Partition user100(100, PARTITION_CE_DATA, nullptr, false);
    ASSERT_TRUE(mountTmpfs("/data/user/10"));
    EXPECT_TRUE(user10.isMounted());
    EXPECT_FALSE(user1.isMounted()) << "a prefix of a mount point is not one";
    EXPECT_FALSE(user100.isMounted()) << "neither is a longer path";

    Partition slashed(10, "/data/x", "/data/user/10/", false);
    EXPECT_FALSE(slashed.isMounted()) << "a trailing slash does not match";

    EXPECT_EQ(1, mPelk.isMountedInternal(nullptr, "/data/user/10"));
    EXPECT_EQ(0, mPelk.isMountedInternal(nullptr, "/data/user/10/"));
}

TEST_F(MountState, PerProcessTablesAndVanishedProcesses) {
    std::string self = std::to_string(getpid());
    ASSERT_TRUE(mountTmpfs("/data/user/11"));
    EXPECT_EQ(1, mPelk.isMountedInternal(self.c_str(), "/data/user/11"));

    pid_t gone = fork();
    if (gone == 0) _exit(0);
    waitpid(gone, nullptr, 0);
    std::string goneText = std::to_string(gone);
    EXPECT_EQ(0, mPelk.isMountedInternal(goneText.c_str(), "/data/user/11"));
    EXPECT_EQ(0, mPelk.getMountMode(goneText.c_str()));
    // A process that went away is routine during a /proc walk: WARN, not ERROR.
    EXPECT_EQ(2, liblog_count("No file to open, skip..", "pelkd", ANDROID_LOG_WARN, LOG_ID_SYSTEM));
    EXPECT_EQ(0, liblog_count("Error opening /proc/mountinfo (No such file or directory)"));
}

TEST_F(MountState, MountModeFollowsTheRootOfStorage) {
    struct Case {
        const char* root;
        int mode;
    } cases[] = {
        {"/runtime/default", 1}, {"/runtime/read", 2},      {"/runtime/write", 3},
        {"/runtime/full", 0},    {"/runtime/default/x", 0}, {"", 0},
    };
    for (const Case& c : cases) {
        mounts::StorageViewProcess process(c.root);
        ASSERT_TRUE(process.ready()) << c.root;
        EXPECT_EQ(c.mode, mPelk.getMountMode(process.pidText().c_str())) << "root " << c.root;
    }
}

TEST_F(MountState, DeAreasDecideUntilCeIsUnlocked) {
    ASSERT_TRUE(mountTmpfs(areaPath(10, PARTITION_DE_DATA)));
    ASSERT_TRUE(mountTmpfs(areaPath(10, PARTITION_DE_MISC)));
    EXPECT_FALSE(mPelk.isMounted(10)) << "one DE area is still missing";
    ASSERT_TRUE(mountTmpfs(areaPath(10, PARTITION_DE_SYSTEM)));
    EXPECT_TRUE(mPelk.isMounted(10));

    // An unlock entry set to false changes nothing.
    mPelk.updateStatusMap(10, false, false);
    EXPECT_TRUE(mPelk.isMounted(10));

    // Once CE is unlocked only the CE areas count, whatever DE says.
    mPelk.updateStatusMap(10, true, false);
    EXPECT_FALSE(mPelk.isMounted(10));
    ASSERT_TRUE(mountAreas(10, Partition::LIST_CE_STORAGE));
    EXPECT_TRUE(mPelk.isMounted(10));
    ASSERT_EQ(0, umount2(areaPath(10, PARTITION_DE_DATA).c_str(), MNT_DETACH));
    EXPECT_TRUE(mPelk.isMounted(10));
    ASSERT_EQ(0, umount2(areaPath(10, PARTITION_CE_SYSTEM).c_str(), MNT_DETACH));
    EXPECT_FALSE(mPelk.isMounted(10));
}

TEST_F(MountState, UnlockMapEntries) {
    EXPECT_FALSE(mPelk.isCeStorageAvailable(20));
    EXPECT_EQ(0u, Pelk::isUnlockedByCe.count(20)) << "asking must not add an entry";
    mPelk.updateStatusMap(20, true, true);
    EXPECT_EQ(0u, Pelk::isUnlockedByCe.count(20)) << "removing an unknown user adds nothing";

    mPelk.updateStatusMap(20, true, false);
    EXPECT_TRUE(mPelk.isCeStorageAvailable(20));
    mPelk.updateStatusMap(20, false, false);
    EXPECT_FALSE(mPelk.isCeStorageAvailable(20));
    EXPECT_EQ(1u, Pelk::isUnlockedByCe.count(20));
    mPelk.updateStatusMap(20, true, true);
    EXPECT_EQ(0u, Pelk::isUnlockedByCe.count(20));
}

TEST_F(MountState, IsFileExistIsTheRawStatResult) {
    EXPECT_EQ(0, mPelk.isFileExist("/data", 10));
    EXPECT_EQ(-1, mPelk.isFileExist("/data/nothing/here", 10));
}

TEST_F(MountState, StartUpReadsTheUnlockStateFromTheMountTable) {
    // Eleven container users: only the first ten are probed.
    for (int user = 10; user <= 20; ++user) devprofile::set("user." + std::to_string(user), "zanth");
    for (int user : {10, 12, 20}) ASSERT_TRUE(mountTmpfs("/data/user/" + std::to_string(user)));
    mPelk.initStatusMap();
    EXPECT_EQ(10u, Pelk::isUnlockedByCe.size());
    EXPECT_TRUE(mPelk.isCeStorageAvailable(10));
    EXPECT_FALSE(mPelk.isCeStorageAvailable(11));
    EXPECT_EQ(1u, Pelk::isUnlockedByCe.count(11)) << "an unmounted user gets a false entry";
    EXPECT_TRUE(mPelk.isCeStorageAvailable(12));
    EXPECT_EQ(0u, Pelk::isUnlockedByCe.count(20)) << "the eleventh user is not probed";
}

TEST_F(MountState, StartUpWithoutContainersLeavesTheMapEmpty) {
    ASSERT_TRUE(mountTmpfs("/data/user/10"));
    mPelk.initStatusMap();
    EXPECT_TRUE(Pelk::isUnlockedByCe.empty());
}

TEST(PelkState, LightConstructorLogsItsPid) {
    liblog_clear();
    Pelk pelk(4242);
    EXPECT_EQ(4242, pelk.mPid);
    EXPECT_EQ(-1, pelk.mPreMountMark);
    EXPECT_EQ(nullptr, pelk.mListener);
    EXPECT_NE(nullptr, pelk.mCopyEngine);
    EXPECT_EQ(1, liblog_count("Added PELK Instance (PID:4242)", "pelkd", ANDROID_LOG_DEBUG, LOG_ID_SYSTEM));
}

}  // namespace
