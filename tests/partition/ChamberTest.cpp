// Chamber directories and their registration, and the sdcard partition's
// per-view directories and source permissions.
#include <chamber/chamber.h>
#include <chamber/chamber_records.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "config/EngineConfig.h"
#include "devprofile/DeviceProfile.h"
#include "partition/Partition.h"
#include "support/Files.h"

using namespace testfs;

namespace {

bool registered(int id, const std::string& path) {
    for (const ChamberDirectory& c : chamber_directories())
        if (c.id == id && c.path == path) return true;
    return false;
}

TEST(ZanthChamber, OnlyTheSdcardAreaHasOneAndRemovalAnswersInverted) {
    Partition sdcard(150, 'f', nullptr, false);
    const std::string chamber = std::string(sdcard.mMntPath) + "/Chamber";
    EXPECT_TRUE(sdcard.removeZanthChamberDirectory());  // nothing there

    ASSERT_TRUE(sdcard.makeZanthChamberDirectory());
    EXPECT_EQ(modeOf(chamber), sdcard.mMode);
    EXPECT_EQ(statOf(chamber).st_uid, sdcard.mUid);
    EXPECT_TRUE(registered(150, chamber));

    ASSERT_TRUE(writeFile(chamber + "/secret"));
    EXPECT_FALSE(sdcard.removeZanthChamberDirectory());  // removed: false
    EXPECT_FALSE(exists(chamber));

    Partition data(150, 'e', nullptr, false);
    EXPECT_FALSE(data.makeZanthChamberDirectory());
    EXPECT_FALSE(data.removeZanthChamberDirectory());
    EXPECT_EQ(liblog_count("makeChamberDirectory is allowedonly for zanth container (supporting old impl)", "pelkd",
                           ANDROID_LOG_ERROR),
              1);
    EXPECT_EQ(liblog_count("removeZanthChamberDirectory is allowedonly for zanth container (supporting old impl)",
                           "pelkd", ANDROID_LOG_ERROR),
              1);
}

TEST(EngineChamber, ReplacesAFileKeepsADirectoryAndUnregistersOnRemoval) {
    Partition p(0, "/data/t/src", "/data/chambers", false);
    makeDirs("/data/chambers");
    ASSERT_TRUE(writeFile("/data/chambers/Chamber.7"));
    p.createEngineChamber(7);
    EXPECT_TRUE(S_ISDIR(statOf("/data/chambers/Chamber.7").st_mode));
    EXPECT_TRUE(registered(7, "/data/chambers/Chamber.7"));
    EXPECT_EQ(liblog_count("making chamberPath /data/chambers/Chamber.7", "pelkd", ANDROID_LOG_ERROR), 1);

    ASSERT_TRUE(writeFile("/data/chambers/Chamber.7/kept"));
    p.createEngineChamber(7);
    EXPECT_TRUE(exists("/data/chambers/Chamber.7/kept"));
    EXPECT_EQ(liblog_count("making chamberPath /data/chambers/Chamber.7", "pelkd"), 1);

    p.removeEngineChamber(7);
    EXPECT_FALSE(exists("/data/chambers/Chamber.7"));
    EXPECT_TRUE(chamber_directories().empty());
}

TEST(EngineChamber, EnablingAListRegistersOnlyEnginesThatAskForIt) {
    Partition p(0, "/data/t/src", "/data/chambers", false);
    makeDirs("/data/chambers");
    engine withChamber{}, without{}, noId{}, noUser{};
    withChamber.id = 3, withChamber.userid = 150, withChamber.flags = 2;
    without.id = 4, without.userid = 150, without.flags = 1;
    noId.id = -1, noId.userid = 150, noId.flags = 2;
    noUser.id = 5, noUser.userid = -1, noUser.flags = 2;
    engine_list list{};
    list.engines[0] = &withChamber;
    list.engines[1] = nullptr;
    list.engines[2] = &without;
    list.engines[3] = &noId;
    list.engines[4] = &noUser;
    list.count = 5;

    p.enableEngineChambers(&list);
    EXPECT_TRUE(exists("/data/chambers/Chamber.3"));
    EXPECT_TRUE(exists("/data/chambers/Chamber.4"));
    EXPECT_FALSE(exists("/data/chambers/Chamber.-1"));
    EXPECT_FALSE(exists("/data/chambers/Chamber.5"));
    ASSERT_EQ(chamber_directories().size(), 1u);
    EXPECT_TRUE(registered(3, "/data/chambers/Chamber.3"));
    EXPECT_EQ(liblog_count("Adding chamber /data/chambers/Chamber.3", "pelkd", ANDROID_LOG_ERROR), 1);
    EXPECT_EQ(liblog_count("engine->flags[00000001] doesn't contain [00000002", "pelkd", ANDROID_LOG_ERROR), 1);
}

TEST(EngineChamber, TheRegistryIsSharedByTheDevicesProcesses) {
    Partition p(0, "/data/t/src", "/data/chambers", false);
    makeDirs("/data/chambers");
    pid_t child = fork();
    if (child == 0) {
        p.createEngineChamber(9);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(registered(9, "/data/chambers/Chamber.9"));
    EXPECT_EQ(del_chamber_directory("/data/chambers/Chamber.9"), 0);
    EXPECT_EQ(del_chamber_directory("/data/chambers/Chamber.9"), -1);  // no longer registered
}

TEST(SdcardPartition, ViewsAreMade0771AndTheSourceGetsItsModeBack) {
    Partition sdcard(150, 'f', nullptr, false);
    ASSERT_EQ(sdcard.preparePartition(), 0);
    for (const char* view : {"default", "read", "write"}) {
        std::string dir = std::string("/mnt/zanth/") + view + "/emulated/150";
        EXPECT_EQ(modeOf(dir), 0771u) << dir;
        EXPECT_EQ(statOf(dir).st_uid, sdcard.mUid) << dir;
    }
    EXPECT_STREQ(sdcard.mWorkPath, "/mnt/zanth/write/emulated/150");

    makeDirs(sdcard.mSrcPath);
    chmod(sdcard.mSrcPath, 0700);
    sdcard.arrangeStoragePermission();
    EXPECT_EQ(modeOf(sdcard.mSrcPath), sdcard.mMode);
    EXPECT_EQ(statOf(sdcard.mSrcPath).st_uid, sdcard.mUid);
    EXPECT_EQ(statOf(sdcard.mSrcPath).st_gid, sdcard.mGid);

    Partition data(150, 'e', nullptr, false);
    makeDirs(data.mSrcPath);
    chmod(data.mSrcPath, 0700);
    EXPECT_EQ(data.preparePartition(), 0);
    data.arrangeStoragePermission();
    EXPECT_EQ(modeOf(data.mSrcPath), 0700u);
}

}  // namespace
