// Starting the sdcard program: its exact argument vectors and what it
// inherits from the daemon.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include <devprofile/DeviceProfile.h>
#include <persona/persona.h>

#include "SdcardRecords.h"
#include "base/UniqueFd.h"
#include "manager/Pelk.h"
#include "support/Mounts.h"

namespace {

using Args = std::vector<std::string>;

class Sdcardfs : public testing::Test {
protected:
    void SetUp() override {
        devprofile::set("fbe", "1");
        liblog_clear();
    }
    // Runs the program for an area and answers its argument vector.
    Args argvFor(int userId, int type) {
        sim::sdcardClear();
        Partition area(userId, type, nullptr, false);
        mounts::makeDirs(area.mSrcPath);
        mounts::makeDirs(area.mMntPath);
        EXPECT_EQ(0, mPelk.mountSdcardfs(&area));
        auto runs = sim::sdcardRuns();
        return runs.size() == 1 ? runs[0].argv : Args{"(no single run)"};
    }
    Pelk mPelk{getpid()};
};

TEST_F(Sdcardfs, ArgumentVectorsPerType) {
    EXPECT_EQ((Args{"/system/bin/sdcard", "-u", "1023", "-g", "1023", "-t", "/mnt/zanth/", "-U", "10", "-w", "-r",
                    "/mnt/runtime/default/emulated/10", "emulated/10"}),
              argvFor(10, PARTITION_CE_SDCARD));
    EXPECT_EQ((Args{"/system/bin/sdcard", "-u", "1000", "-g", "1000", "-w", "-r", "/data/privatemode", "Private"}),
              argvFor(0, PARTITION_PRIVATE_MODE));
    EXPECT_EQ((Args{"/system/bin/sdcard", "-u", "1000", "-g", "1000", "-m", "-s", "-r",
                    "/data/zanth/secure_fs/enc_media", "/mnt/shell/enc_emulated"}),
              argvFor(0, PARTITION_MIREL_MEDIA));
    EXPECT_EQ(0, sim::sdcardRuns()[0].status);
    EXPECT_EQ(1, isMountedPath("/mnt/shell/enc_emulated"));
}

TEST_F(Sdcardfs, LongUserIdsAreCutAsThePlatformExpects) {
    // Four bytes hold three digits; fourteen hold "emulated/" and four.
    Args thousand = argvFor(1000, PARTITION_CE_SDCARD);
    ASSERT_EQ(13u, thousand.size());
    EXPECT_EQ("100", thousand[8]);
    EXPECT_EQ("emulated/1000", thousand[12]);
    Args longer = argvFor(12345, PARTITION_CE_SDCARD);
    ASSERT_EQ(13u, longer.size());
    EXPECT_EQ("123", longer[8]);
    EXPECT_EQ("emulated/1234", longer[12]);
}

TEST_F(Sdcardfs, OtherTypesStartNothing) {
    for (int type : {int{PARTITION_CE_DATA}, int{PARTITION_DE_DATA}, int{PARTITION_MIREL_USER}, int{'z'}}) {
        Partition area(10, type, nullptr, false);
        EXPECT_EQ(-1, mPelk.mountSdcardfs(&area)) << static_cast<char>(type);
    }
    EXPECT_EQ(-1, mPelk.mountSdcardfs(nullptr));
    EXPECT_TRUE(sim::sdcardRuns().empty());
}

TEST_F(Sdcardfs, OnlyTheSecureExecutionDeviceIsKeptFromTheProgram) {
    pelk::UniqueFd first(open("/dev/qseecom", O_RDWR));
    pelk::UniqueFd second(open("/dev/qseecom", O_RDONLY));
    pelk::UniqueFd other(open("/dev/null", O_RDONLY));
    ASSERT_TRUE(first.ok() && second.ok() && other.ok());

    argvFor(0, PARTITION_PRIVATE_MODE);
    std::vector<std::string> inherited = sim::sdcardRuns()[0].inheritedFds;
    EXPECT_NE(inherited.end(),
              std::find(inherited.begin(), inherited.end(), std::to_string(other.get()) + " /dev/null"));
    for (const std::string& fd : inherited) EXPECT_EQ(std::string::npos, fd.find("qseecom")) << fd;
    EXPECT_EQ(FD_CLOEXEC, fcntl(first.get(), F_GETFD));
    EXPECT_EQ(FD_CLOEXEC, fcntl(second.get(), F_GETFD));
    EXPECT_EQ(0, fcntl(other.get(), F_GETFD)) << "other descriptors are left as they are";
}

TEST_F(Sdcardfs, AProgramThatCannotRunIsLoggedAndStillAnswersZero) {
    // /dev/null in its place cannot be executed.
    ASSERT_EQ(0, mount("/dev/null", "/system/bin/sdcard", nullptr, MS_BIND, nullptr));
    Partition area(0, PARTITION_PRIVATE_MODE, nullptr, false);
    EXPECT_EQ(0, mPelk.mountSdcardfs(&area));
    umount2("/system/bin/sdcard", MNT_DETACH);
    EXPECT_EQ(1, liblog_count("Failed to exec", "pelkd", ANDROID_LOG_ERROR, LOG_ID_SYSTEM));
    EXPECT_EQ(1, liblog_count("exec done, exiting", "pelkd", ANDROID_LOG_ERROR, LOG_ID_SYSTEM));
    EXPECT_TRUE(sim::sdcardRuns().empty());
}

}  // namespace
