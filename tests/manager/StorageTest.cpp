// Preparing and mounting a container's DE and CE storage: the DE key made
// afresh when the store has none, and the remount worker a CE mount starts
// (or, for a CL container or while the user's last worker runs, does not).
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include <devprofile/DeviceProfile.h>

#include "manager/Pelk.h"
#include "partition/Partition.h"
#include "support/Files.h"
#include "support/KeyStoreFiles.h"

using keytest::Bytes;

namespace {

const int kUser = 150;
const char kEdek[] = "/data/system/users/150/zanth_edk_de_150";

// A raw key as the manager hands it on: 32 bytes and a terminating zero.
struct Key {
    Key() {
        Bytes bytes = keytest::randomBytes(32);
        std::copy(bytes.begin(), bytes.end(), data);
    }
    char data[33] = {0};
};

class Storage : public testing::Test {
protected:
    void SetUp() override {
        devprofile::set("fbe", "0");
        devprofile::set("time.scale", "0.001");
        Pelk::remountChildList.clear();
        for (int32_t type : Partition::LIST_CE_STORAGE) {
            Partition area(kUser, type, nullptr, true);
            ASSERT_TRUE(testfs::makeDirs(area.mSrcPath));
            ASSERT_TRUE(testfs::makeDirs(area.mMntPath));
        }
        liblog_clear();
    }
    void TearDown() override {
        // Workers this test started: end them before the next test.
        Pelk::clearChildList();
        Pelk::remountChildList.clear();
    }
    bool hasWorker(int userId) { return Pelk::remountChildList.count(userId) != 0; }
    Pelk mPelk{getpid()};
    Key mKey;
};

TEST_F(Storage, DePrepareWithoutAStoreKeyMakesANewKeyAndEdekEachTime) {
    ASSERT_TRUE(testfs::makeDirs("/data/system/users/150"));
    keytest::provisionKey(kUser, 4, "ecryptfsKey150", keytest::randomBytes(32));
    char first[33];
    char second[33];
    memset(first, 0xAA, sizeof(first));
    memset(second, 0xAA, sizeof(second));

    ASSERT_EQ(0, mPelk.prepareStorageDe(kUser, first));
    std::string firstEdek = testfs::readFile(kEdek);
    ASSERT_EQ(0, mPelk.prepareStorageDe(kUser, second));
    EXPECT_EQ(0, first[32]);
    EXPECT_EQ(0, second[32]);
    EXPECT_NE(std::string(first, 32), std::string(second, 32));
    EXPECT_NE(firstEdek, testfs::readFile(kEdek)) << "the EDEK file was not rewritten";
    for (int32_t type : Partition::LIST_DE_STORAGE) {
        Partition area(kUser, type, nullptr, false);
        EXPECT_TRUE(testfs::exists(area.mMntPath)) << area.mMntPath;
    }
}

TEST_F(Storage, ACeMountStartsOneRemountWorker) {
    devprofile::set("user.150", "zanth");
    ASSERT_EQ(0, mPelk.mountStorageCe(kUser, mKey.data, true, true, true));
    EXPECT_TRUE(mPelk.isCeStorageAvailable(kUser));
    EXPECT_TRUE(hasWorker(kUser));
    EXPECT_TRUE(testfs::exists("/storage/emulated/150"));
}

TEST_F(Storage, AClContainerIsMarkedUnlockedButGetsNoWorker) {
    devprofile::set("user.150", "zanth,cl");
    ASSERT_EQ(0, mPelk.mountStorageCe(kUser, mKey.data, true, true, true));
    EXPECT_TRUE(mPelk.isCeStorageAvailable(kUser));
    EXPECT_FALSE(hasWorker(kUser));
}

TEST_F(Storage, ACeMountWhileTheUsersWorkerRunsWaitsAndStartsNoOther) {
    devprofile::set("user.150", "zanth");
    pid_t earlier = fork();
    if (earlier == 0) {
        pause();
        _exit(0);
    }
    ASSERT_GT(earlier, 0);
    Pelk::addChildToList(kUser, earlier);

    ASSERT_EQ(0, mPelk.mountStorageCe(kUser, mKey.data, true, true, true));
    EXPECT_TRUE(mPelk.isCeStorageAvailable(kUser));
    EXPECT_EQ(earlier, Pelk::remountChildList[kUser]);
    // The thirty polls ran out, and no second worker was forked: the only
    // child of this test is the earlier worker, still running.
    EXPECT_EQ(1, liblog_count("Failed to ready for starting thread for User %d", "pelkd", ANDROID_LOG_ERROR));
    usleep(200 * 1000);
    EXPECT_EQ(0, waitpid(-1, nullptr, WNOHANG));
    kill(earlier, SIGKILL);
    waitpid(earlier, nullptr, 0);
    Pelk::remountChildList.clear();
}

}  // namespace
