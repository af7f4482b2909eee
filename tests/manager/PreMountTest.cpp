// Boot pre-mount against the simulated key store and real mounts: which
// containers come up, what the status files say, and the secure filesystem
// whose media view never appears.
#include <devprofile/DeviceProfile.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <persona/persona.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "log/PelkLog.h"
#include "manager/Pelk.h"
#include "partition/Partition.h"
#include "support/Files.h"
#include "support/KeyStoreFiles.h"
#include "support/Mounts.h"

namespace {

using mounts::mountedCount;

using mounts::areaPath;
using testfs::exists;

class PreMount : public testing::Test {
protected:
    void SetUp() override {
        devprofile::set("fbe", "0");
        devprofile::set("time.scale", "0.001");
        devprofile::set("user.10", "zanth,legacy");
        devprofile::set("user.11", "zanth,legacy");
        // The platform makes each user's folder; the daemon only writes in it.
        for (const char* dir : {"/data/system/users/10", "/data/system/users/11"}) testfs::makeDirs(dir);
        liblog_clear();
    }
    // A container as "create_partition" and the platform's key provisioning leave it.
    void provisionCe(int user) {
        ASSERT_EQ(0, mPelk.forceCreateStorage(user, 0));
        ASSERT_EQ(0, mPelk.forceCreateStorage(user, 1));
        keytest::provisionKey(user, 4, ("ecryptfsKey" + std::to_string(user)).c_str(), keytest::randomBytes(32));
    }
    Pelk mPelk{getpid()};
};

}  // namespace

TEST_F(PreMount, OnlyKeyedContainersComeUpButEverySdcardGetsItsPermissions) {
    provisionCe(10);
    Partition sdcard(11, PARTITION_CE_SDCARD, nullptr, false);
    ASSERT_TRUE(testfs::makeDirs(sdcard.mSrcPath));
    chmod(sdcard.mSrcPath, 0700);
    ASSERT_EQ(0, chown(sdcard.mSrcPath, 0, 0));

    EXPECT_EQ(0, mPelk.preMount());
    EXPECT_EQ(3, mountedCount(10, Partition::LIST_DE_STORAGE));
    EXPECT_EQ(4, mountedCount(10, Partition::LIST_CE_STORAGE));
    EXPECT_EQ(0, mountedCount(11, Partition::LIST_DE_STORAGE));
    EXPECT_EQ(0, mountedCount(11, Partition::LIST_CE_STORAGE));
    struct stat st = testfs::statOf(sdcard.mSrcPath);
    EXPECT_EQ(sdcard.mMode & 07777, st.st_mode & 07777);
    EXPECT_EQ(sdcard.mUid, st.st_uid);
    EXPECT_EQ(sdcard.mGid, st.st_gid);

    std::string status = testfs::readFile(PelkPremountSuccess);
    EXPECT_NE(std::string::npos, status.find("Skip Pre-mount for user 11 (No CE key in Quarnkeystore!!)"));
    EXPECT_NE(std::string::npos, status.find("Pre-mount Success!!"));
    EXPECT_FALSE(exists(PelkPremountOnGoing));
}

TEST_F(PreMount, FileBasedEncryptionBringsUpDeOnly) {
    devprofile::set("fbe", "1");
    provisionCe(10);
    EXPECT_EQ(0, mPelk.preMount());
    EXPECT_EQ(3, mountedCount(10, Partition::LIST_DE_STORAGE));
    EXPECT_EQ(0, mountedCount(10, Partition::LIST_CE_STORAGE));
}

TEST_F(PreMount, OneUsersDeFailureFailsTheWholeRunButNotTheOthers) {
    provisionCe(10);
    provisionCe(11);
    // User 11's wrapped DE key no longer opens.
    ASSERT_TRUE(testfs::writeFile("/data/system/users/11/zanth_edk_de_11", std::string(128, 'x')));
    EXPECT_EQ(-1, mPelk.preMount());
    EXPECT_EQ(3, mountedCount(10, Partition::LIST_DE_STORAGE));
    EXPECT_EQ(0, mountedCount(11, Partition::LIST_DE_STORAGE));
    EXPECT_EQ(4, mountedCount(10, Partition::LIST_CE_STORAGE));
    EXPECT_EQ(4, mountedCount(11, Partition::LIST_CE_STORAGE));
    EXPECT_TRUE(exists(PelkPremountFailed));
    EXPECT_FALSE(exists(PelkPremountSuccess));
    EXPECT_EQ(std::string::npos, testfs::readFile(PelkPremountFailed).find("Pre-mount Success!!"));
}

TEST_F(PreMount, NoContainersSetsNoStatus) {
    devprofile::set("user.10", "");
    devprofile::set("user.11", "");
    EXPECT_EQ(0, mPelk.preMount());
    EXPECT_FALSE(exists(PelkPremountOnGoing));
    EXPECT_FALSE(exists(PelkPremountSuccess));
    EXPECT_FALSE(exists(PelkPremountFailed));
}

TEST_F(PreMount, SecureFilesystemWithoutItsMediaViewMountsTheUserAreaOnly) {
    ASSERT_TRUE(testfs::writeFile("/data/system/users/secure_fs.xml", "<secure_fs quarnVersion=\"4\" version=\"2\"/>"));
    keytest::provisionKey(0, 4, "eCryptfsKeySecFS", keytest::randomBytes(32));
    ASSERT_EQ(0, mPelk.forceCreateStorage(0, 2));
    EXPECT_EQ(0, mPelk.preMountSecureFileSystem(nullptr));
    EXPECT_TRUE(isMountedPath(areaPath(0, PARTITION_MIREL_USER).c_str()));
    EXPECT_FALSE(isMountedPath(areaPath(0, PARTITION_MIREL_MEDIA).c_str()));
    EXPECT_EQ(1, liblog_count("Pre-Mount ERROR: Sdcardfs is not ready", "pelkd", ANDROID_LOG_ERROR));
    // Six looks a second apart and one more second (time-scaled).
    EXPECT_EQ(0, liblog_count("Pre-Mount : Sdcardfs is Ready.. Tried: 0\n", "pelkd"));
}

TEST_F(PreMount, SecureFilesystemWithoutItsKeyMountsNothing) {
    EXPECT_EQ(-1, mPelk.preMountSecureFileSystem(nullptr));
    EXPECT_EQ(1, liblog_count("Pre-Mount ERROR : QuarnHelper failed\n", "pelkd", ANDROID_LOG_ERROR));
    EXPECT_FALSE(isMountedPath(areaPath(0, PARTITION_MIREL_USER).c_str()));
}
