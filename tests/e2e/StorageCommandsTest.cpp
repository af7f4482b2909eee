// A container's storage driven over "pelk" as system_server drives it:
// create, mount, ask, unmount and remove, against real mounts of the device.
#include <gtest/gtest.h>
#include <persona/persona.h>
#include <sys/xattr.h>

#include <string>
#include <vector>

#include "Daemon.h"
#include "devprofile/DeviceProfile.h"
#include "partition/Partition.h"
#include "support/Files.h"
#include "support/Mounts.h"
#include "tools/Base64.h"

namespace {

using mounts::areaPath;
using mounts::mountedCount;

using e2e::pelkctl;

const int kUser = 10;

std::string keyText(char fill, size_t bytes = 32) { return e2e::keyText(std::string(bytes, fill)); }

class StorageCommands : public e2e::DaemonTest {
protected:
    void prepareDevice() override { e2e::prepareLegacyContainerDevice(); }
    std::vector<std::string> send(const std::string& lines) { return pelkctl({}, lines).lines; }
};

TEST_F(StorageCommands, AContainersWholeLife) {
    const std::string key = keyText('k');
    auto r = send("create_partition 10 1\ncreate_partition 10 3\nis_mounted 10\n");
    EXPECT_EQ((std::vector<std::string>{"200 1 success", "200 2 success", "281 3 failed"}), r);
    for (int32_t type : Partition::LIST_CE_STORAGE) EXPECT_TRUE(testfs::exists(areaPath(kUser, type))) << type;

    r = send("mount 10 " + key + " 1 3\nmount 10 " + key + " 1 1\nis_mounted 10\n");
    EXPECT_EQ((std::vector<std::string>{"200 1 success", "200 2 success", "200 3 success"}), r);
    EXPECT_EQ(3, mountedCount(kUser, Partition::LIST_DE_STORAGE));
    EXPECT_EQ(4, mountedCount(kUser, Partition::LIST_CE_STORAGE));
    EXPECT_TRUE(testfs::exists("/storage/emulated/10"));
    ASSERT_TRUE(testfs::writeFile(areaPath(kUser, PARTITION_CE_DATA) + "/kept.txt", "data"));

    r = send("unmount 10 1\nunmount 10 3\nis_mounted 10\n");
    EXPECT_EQ((std::vector<std::string>{"200 1 success", "200 2 success", "281 3 failed"}), r);
    EXPECT_EQ(0, mountedCount(kUser, Partition::LIST_DE_STORAGE));
    EXPECT_EQ(0, mountedCount(kUser, Partition::LIST_CE_STORAGE));

    // Another key is refused and leaves nothing mounted; the right one
    // brings the data back.
    r = send("mount 10 " + keyText('x') + " 1 1\n");
    EXPECT_EQ((std::vector<std::string>{"281 1 failed"}), r);
    EXPECT_EQ(0, mountedCount(kUser, Partition::LIST_CE_STORAGE));
    r = send("mount 10 " + key + " 1 1\n");
    EXPECT_EQ((std::vector<std::string>{"200 1 success"}), r);
    EXPECT_EQ("data", testfs::readFile(areaPath(kUser, PARTITION_CE_DATA) + "/kept.txt"));

    // Without FBE the sdcard's source and mount paths are one directory:
    // the second clear finds it gone and the CE removal answers "failed",
    // as system_server has always seen it, with every area removed.
    r = send("unmount 10 1\nremove_partition 10 1\nremove_partition 10 3\n");
    EXPECT_EQ((std::vector<std::string>{"200 1 success", "281 2 failed", "200 3 success"}), r);
    EXPECT_EQ(1, liblog_count("remove directory /data/zanth/sdcard/10 failed : 2(No such file or directory)"));
    EXPECT_FALSE(testfs::exists(Partition(kUser, PARTITION_CE_DATA, nullptr, false).mSrcPath));
}

TEST_F(StorageCommands, KeysThatAreNotWholeAreRefusedAndNeverLogged) {
    auto r = send("mount 10 " + keyText('k', 31) + " 1 1\nmount 10 !!!! 1 3\n");
    EXPECT_EQ((std::vector<std::string>{"281 1 failed", "281 2 failed"}), r);
    EXPECT_EQ(0, mountedCount(kUser, Partition::LIST_CE_STORAGE));
    EXPECT_EQ(0, mountedCount(kUser, Partition::LIST_DE_STORAGE));
    for (const LogRecord& rec : liblog_records()) {
        EXPECT_EQ(std::string::npos, rec.text.find(keyText('k', 31))) << rec.text;
    }
}

TEST_F(StorageCommands, TypesAndUsersOutsideTheTable) {
    auto r = send("mount 10 " + keyText('k') +
                  " 1 7\ncreate_partition -1 1\nremove_partition -3 1\n"
                  "create_partition 10 9\nremove_partition 10 9\nunmount 10 9\n");
    EXPECT_EQ((std::vector<std::string>{"200 1 success", "281 2 userId failed", "281 3 userId failed", "281 4 failed",
                                        "281 5 failed", "200 6 success"}),
              r);
    // Type 9 takes the device-wide areas down without saying so.
    EXPECT_EQ(0, liblog_count("unmounting device wide partitions"));
}

TEST_F(StorageCommands, FbeDevicesRefuseContainerMountsAndOdeGatesThem) {
    devprofile::set("fbe", "1");
    auto r = send("mount 10 " + keyText('k') + " 1 1\nunmount 10 1\ncreate_partition 10 1\n");
    EXPECT_EQ((std::vector<std::string>{"281 1 Not allowed to mount partition on FBE devices",
                                        "281 2 Not allowed to unmount partition on FBE devices",
                                        "281 3 Not allowed to create partition on FBE devices"}),
              r);
    devprofile::set("fbe", "0");
    devprofile::set("ode", "0");
    r = send("mount 10 " + keyText('k') + " 1 1\npremount\n");
    EXPECT_EQ((std::vector<std::string>{"281 1 failed", "200 2 success"}), r);
}

TEST_F(StorageCommands, AFailedCreateAnswersBeforeItCleansUp) {
    // The third CE area cannot be made (a file where its parent folder
    // belongs): the first two are removed again after the reply.
    std::string misc = Partition(kUser, PARTITION_CE_MISC, nullptr, false).mSrcPath;
    ASSERT_TRUE(testfs::writeFile(misc.substr(0, misc.rfind('/')), "in the way"));
    auto r = send("create_partition 10 1\n");
    EXPECT_EQ((std::vector<std::string>{"281 1 failed"}), r);
    EXPECT_FALSE(testfs::exists(Partition(kUser, PARTITION_CE_DATA, nullptr, false).mSrcPath));
}

// A lower directory that already holds another key's check value refuses
// the mount: the areas before it in the list are mounted, then undone or
// not by type.
void refuseArea(int user, int type) {
    std::string lower = Partition(user, type, nullptr, false).mSrcPath;
    ASSERT_EQ(0, setxattr(lower.c_str(), "user.pelk.ecryptfs_check", "x", 1, 0)) << lower;
}

TEST_F(StorageCommands, AFailedMountIsUndoneByTypeAndTypeFourKeepsWhatItMounted) {
    const std::string key = keyText('k');
    auto r = send("create_partition 10 1\ncreate_partition 10 3\ncreate_partition 0 2\n");
    ASSERT_EQ((std::vector<std::string>{"200 1 success", "200 2 success", "200 3 success"}), r);
    refuseArea(kUser, PARTITION_CE_MISC);  // third of four CE areas
    refuseArea(kUser, PARTITION_DE_MISC);  // second of three DE areas
    refuseArea(0, PARTITION_MIREL_MEDIA);  // second of two device-wide areas

    r = send("mount 10 " + key + " 1 1\nmount 10 " + key + " 1 3\nmount 0 " + key + " 1 2\n");
    EXPECT_EQ((std::vector<std::string>{"281 1 failed", "281 2 failed", "281 3 failed"}), r);
    EXPECT_EQ(0, mountedCount(kUser, Partition::LIST_CE_STORAGE));
    EXPECT_EQ(0, mountedCount(kUser, Partition::LIST_DE_STORAGE));
    EXPECT_EQ(0, mountedCount(0, Partition::LIST_MIREL_STORAGE));

    r = send("mount 10 " + key + " 1 4\n");
    EXPECT_EQ((std::vector<std::string>{"281 1 failed"}), r);
    EXPECT_TRUE(isMountedPath(areaPath(kUser, PARTITION_CE_DATA).c_str()));
    EXPECT_TRUE(isMountedPath(areaPath(kUser, PARTITION_CE_SDCARD).c_str()));
    EXPECT_FALSE(isMountedPath(areaPath(kUser, PARTITION_CE_MISC).c_str()));
    send("unmount 10 1\n");
}

TEST_F(StorageCommands, WordsThatAreNotNumbersAndRepeatedLines) {
    const std::string key = keyText('k');
    send("create_partition 10 1\ncreate_partition 10 3\n");
    // atoi reads "ten" as user 0 and "x" as type 0; huge numbers wrap as atoi does.
    auto r = send("mount ten " + key + " 1 x\nunmount 10\ncreate_partition 99999999999 1\nmount 42 " + key + " 1 3\n");
    ASSERT_EQ(4u, r.size());
    EXPECT_EQ("200 1 success", r[0]);  // type 0 mounts nothing
    EXPECT_EQ("501 2 given argc [2] != expected [3]", r[1]);
    EXPECT_EQ("281 4 failed", r[3]);  // no storage was ever made for user 42
    EXPECT_EQ(0, mountedCount(42, Partition::LIST_DE_STORAGE));

    // Mount and unmount lines interleaved and repeated end where the last one says.
    r = send("mount 10 " + key + " 1 3\nmount 10 " + key + " 1 3\nunmount 10 3\nunmount 10 3\nmount 10 " + key +
             " 1 3\n");
    EXPECT_EQ(
        (std::vector<std::string>{"200 1 success", "200 2 success", "200 3 success", "200 4 success", "200 5 success"}),
        r);
    EXPECT_EQ(3, mountedCount(kUser, Partition::LIST_DE_STORAGE));
    send("unmount 10 3\n");
}

}  // namespace
