// Taking container storage down and the manager's small upkeep operations,
// against real mounts of the device.
#include <devprofile/DeviceProfile.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <persona/persona.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "BusyKernel.h"
#include "manager/Pelk.h"
#include "partition/Partition.h"
#include "support/Files.h"
#include "support/ListenerLog.h"
#include "support/Mounts.h"

namespace {

using mounts::mountedCount;

using mounts::areaPath;
using testfs::exists;
using testfs::makeDirs;

bool mounted(int user, int type) { return isMountedPath(areaPath(user, type).c_str()) != 0; }

int logged(const std::string& text, int priority = ANDROID_LOG_ERROR, int buffer = LOG_ID_SYSTEM) {
    return liblog_count(text.c_str(), "pelkd", priority, buffer);
}

class Teardown : public testing::Test {
protected:
    void SetUp() override {
        devprofile::set("fbe", "0");
        devprofile::set("time.scale", "0.001");
        devprofile::set("user.10", "zanth,legacy");
        liblog_clear();
    }
    Pelk mPelk{getpid()};
};

}  // namespace

TEST_F(Teardown, UnknownKindsTouchNothing) {
    EXPECT_EQ(-1, mPelk.forceCreateStorage(10, 3));
    EXPECT_FALSE(exists(Partition(10, PARTITION_CE_DATA, nullptr, false).mSrcPath));
    ASSERT_EQ(0, mPelk.forceCreateStorage(10, 0));
    EXPECT_EQ(-1, mPelk.forceRemoveStorage(10, -1));
    for (int32_t type : Partition::LIST_CE_STORAGE) EXPECT_TRUE(exists(Partition(10, type, nullptr, false).mSrcPath));
}

TEST_F(Teardown, RemovalTriesEveryAreaAndReportsTheOneThatStayed) {
    ASSERT_EQ(0, mPelk.forceCreateStorage(10, 0));
    ASSERT_TRUE(mounts::mountTmpfs(areaPath(10, PARTITION_CE_DATA)));  // a mounted area cannot go
    EXPECT_EQ(-1, mPelk.forceRemoveStorage(10, 0));
    EXPECT_TRUE(exists(Partition(10, PARTITION_CE_DATA, nullptr, false).mSrcPath));
    for (int32_t type : {PARTITION_CE_SDCARD, PARTITION_CE_MISC, PARTITION_CE_SYSTEM})
        EXPECT_FALSE(exists(Partition(10, type, nullptr, false).mSrcPath)) << static_cast<char>(type);
}

TEST_F(Teardown, CeStopsAtTheFirstAreaThatStaysMounted) {
    ASSERT_TRUE(mounts::mountAreas(10, Partition::LIST_CE_STORAGE));
    mPelk.updateStatusMap(10, true, true);
    const std::string sdcard = areaPath(10, PARTITION_CE_SDCARD);
    // The teardown runs in a child whose kernel keeps the sdcard area busy;
    // the child reports its result and the unlock state it was left with.
    int rc = sim::runWithBusyKernel(
        [this] { return (mPelk.unmountStorageCe(10) == -1 ? 1 : 0) | (mPelk.isCeStorageAvailable(10) ? 0 : 2); },
        [&sdcard](const std::string& target) { return target == sdcard; });
    EXPECT_EQ(3, rc);
    EXPECT_FALSE(mounted(10, PARTITION_CE_DATA));
    EXPECT_TRUE(mounted(10, PARTITION_CE_SDCARD));
    EXPECT_TRUE(mounted(10, PARTITION_CE_MISC));
    EXPECT_TRUE(mounted(10, PARTITION_CE_SYSTEM));
    EXPECT_EQ(1, logged("Unmount CE ERROR", ANDROID_LOG_ERROR, LOG_ID_MAIN));
}

TEST_F(Teardown, AllContainersMeansTheFirstFive) {
    std::string users;
    for (int user = 10; user <= 15; ++user) {
        devprofile::set("user." + std::to_string(user), "zanth,cl");  // no process remount worker
        ASSERT_TRUE(mounts::mountAreas(user, Partition::LIST_CE_STORAGE));
        ASSERT_TRUE(mounts::mountAreas(user, Partition::LIST_DE_STORAGE));
    }
    mPelk.unmountAllZanthStorages();
    for (int user = 10; user <= 14; ++user) {
        EXPECT_EQ(0, mountedCount(user, Partition::LIST_CE_STORAGE)) << user;
        EXPECT_EQ(0, mountedCount(user, Partition::LIST_DE_STORAGE)) << user;
    }
    EXPECT_EQ(4, mountedCount(15, Partition::LIST_CE_STORAGE));
    EXPECT_EQ(3, mountedCount(15, Partition::LIST_DE_STORAGE));
}

TEST_F(Teardown, DirectoriesUnderAContainersEmulatedStorage) {
    const std::string view = areaPath(10, PARTITION_SDCARDFS_DEFAULT);
    ASSERT_TRUE(makeDirs(view));
    EXPECT_EQ(0, mPelk.zanthfs_check_and_mkdirs("/storage/emulated/10/Android/data/x", 0771));
    EXPECT_TRUE(exists(view + "/Android/data/x"));
    EXPECT_EQ(1, logged("Terminated seperator: 2\n", ANDROID_LOG_DEBUG));

    EXPECT_EQ(1, mPelk.zanthfs_check_and_mkdirs("/storage/emulated/abc", 0771));
    EXPECT_EQ(1, logged("Terminated by non-digit value", ANDROID_LOG_DEBUG));
    EXPECT_EQ(1, mPelk.zanthfs_check_and_mkdirs("/storage/emulated", 0771));
    EXPECT_EQ(1, logged("Not Zanth related path!\n", ANDROID_LOG_DEBUG));
    EXPECT_EQ(1, mPelk.zanthfs_check_and_mkdirs("/storage/elsewhere/10/x", 0771));
    EXPECT_EQ(1, logged("Not Zanth related path!!\n", ANDROID_LOG_DEBUG));
    EXPECT_EQ(1, mPelk.zanthfs_check_and_mkdirs("/storage/emulated/0/Android/y", 0771));  // not a container
    EXPECT_FALSE(exists(view + "/Android/y"));
}

TEST_F(Teardown, DeleteFileTakesFilesAndEmptyDirectoriesOnly) {
    ASSERT_TRUE(testfs::writeFile("/data/del/full/f", "x"));
    EXPECT_EQ(-1, mPelk.deleteFile("/data/del/full", 10));
    EXPECT_TRUE(exists("/data/del/full/f"));
    EXPECT_EQ(1, listenerlog::countStartingWith("deleteFile st_mode="));
    EXPECT_EQ(0, mPelk.deleteFile("/data/del/full/f", 10));
    EXPECT_EQ(0, mPelk.deleteFile("/data/del/full", 10));
    EXPECT_FALSE(exists("/data/del/full"));
    EXPECT_EQ(-1, mPelk.deleteFile("/data/del/missing", 10));
    EXPECT_EQ(-1, mPelk.deleteFile("/dev/null", 10));
    EXPECT_EQ(1, logged("deleteFile path is not a regular file or directory"));
}

TEST_F(Teardown, EdkFilePermissions) {
    const std::string edk = "/data/system/users/zanth_edk_10";
    unlink(edk.c_str());
    EXPECT_EQ(-1, mPelk.changeEDKFilePermission(10, 0640, 1000, 1000));
    EXPECT_EQ(1, logged("EDK No available :: Error\n"));
    ASSERT_TRUE(testfs::writeFile(edk, "wrapped"));
    EXPECT_EQ(0, mPelk.changeEDKFilePermission(10, 0640, 1000, 1015));
    struct stat st = testfs::statOf(edk);
    EXPECT_EQ(0640u, st.st_mode & 07777);
    EXPECT_EQ(1000u, st.st_uid);
    EXPECT_EQ(1015u, st.st_gid);
}
