// Directory chains, the tree rewrite through the copy engine and the
// encryption marker, on real trees.
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include <devprofile/DeviceProfile.h>

#include "manager/Pelk.h"
#include "support/Holders.h"
#include "support/Mounts.h"

namespace {

struct stat statOf(const std::string& path) {
    struct stat st = {};
    lstat(path.c_str(), &st);
    return st;
}

bool exists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class TreeRewrite : public testing::Test {
protected:
    void SetUp() override {
        umask(0);
        liblog_clear();
    }
    void TearDown() override { umask(022); }
    Pelk mPelk{getpid()};
};

TEST_F(TreeRewrite, MakeDirectoryLeavesExistingDirectoriesAlone) {
    ASSERT_EQ(0, mkdir("/data/keep", 0700));
    ASSERT_EQ(0, chown("/data/keep", 1000, 1000));
    EXPECT_EQ(0, mPelk.makeDirectory("/data/keep/a/b", 0751, 1023, 1015));

    EXPECT_EQ(040700u, statOf("/data/keep").st_mode);
    EXPECT_EQ(1000u, statOf("/data/keep").st_uid);
    for (const char* made : {"/data/keep/a", "/data/keep/a/b"}) {
        EXPECT_EQ(040751u, statOf(made).st_mode) << made;
        EXPECT_EQ(1023u, statOf(made).st_uid) << made;
        EXPECT_EQ(1015u, statOf(made).st_gid) << made;
    }
    // All there already: nothing changes.
    EXPECT_EQ(0, mPelk.makeDirectory("/data/keep/a/b", 0700, 0, 0));
    EXPECT_EQ(040751u, statOf("/data/keep/a/b").st_mode);
    EXPECT_EQ(1023u, statOf("/data/keep/a/b").st_uid);
    EXPECT_GT(liblog_count("makeDirectory(/data/keep/a/b)", "pelkd", ANDROID_LOG_DEBUG, LOG_ID_SYSTEM), 0);
}

TEST_F(TreeRewrite, MakeDirectoryRefusesOverlongPathsAndReportsFailures) {
    std::string longPath = "/data/" + std::string(4090, 'x');
    EXPECT_EQ(-1, mPelk.makeDirectory(longPath.c_str(), 0700, 0, 0));
    EXPECT_EQ(1, liblog_count("the length of path is too long\n", "pelkd", ANDROID_LOG_ERROR));
    EXPECT_FALSE(exists("/data/x")) << "nothing of it is made";

    ASSERT_TRUE(holders::writeFile("/data/afile", 1));
    EXPECT_EQ(-1, mPelk.makeDirectory("/data/afile/sub", 0700, 0, 0));
    EXPECT_EQ(1, liblog_count("mkdir failed for /data/afile/sub/, Not a directory\n", "pelkd", ANDROID_LOG_ERROR));
}

TEST_F(TreeRewrite, CryptInplaceCopiesFilesAndDirectoriesAndPassesLinks) {
    ASSERT_TRUE(holders::writeFile("/data/src/top.txt", 3000));
    ASSERT_TRUE(holders::writeFile("/data/src/sub/deep/inner.bin", 70000));
    ASSERT_EQ(0, chmod("/data/src/sub", 0750));
    ASSERT_EQ(0, chown("/data/src/sub", 10123, 10123));
    ASSERT_EQ(0, chmod("/data/src/top.txt", 0640));
    ASSERT_EQ(0, chown("/data/src/top.txt", 10123, 1015));
    ASSERT_EQ(0, symlink("top.txt", "/data/src/link"));
    ASSERT_EQ(0, symlink("/data/nowhere", "/data/src/sub/dangling"));

    EXPECT_EQ(0, mPelk.cryptInplace("/data/src", "/data/dst", false));

    EXPECT_EQ(3000u, readFile("/data/dst/top.txt").size());
    EXPECT_EQ(70000u, readFile("/data/dst/sub/deep/inner.bin").size());
    EXPECT_EQ(0100640u, statOf("/data/dst/top.txt").st_mode);
    EXPECT_EQ(10123u, statOf("/data/dst/top.txt").st_uid);
    EXPECT_EQ(1015u, statOf("/data/dst/top.txt").st_gid);
    EXPECT_EQ(040750u, statOf("/data/dst/sub").st_mode);
    EXPECT_EQ(10123u, statOf("/data/dst/sub").st_uid);
    // Files move; links stay behind and are not copied.
    EXPECT_FALSE(exists("/data/src/top.txt"));
    EXPECT_FALSE(exists("/data/src/sub/deep/inner.bin"));
    EXPECT_TRUE(S_ISLNK(statOf("/data/src/link").st_mode));
    EXPECT_TRUE(S_ISLNK(statOf("/data/src/sub/dangling").st_mode));
    EXPECT_FALSE(exists("/data/dst/link"));
    EXPECT_FALSE(exists("/data/dst/sub/dangling"));
    EXPECT_FALSE(exists("/data/dst/top.txt.tmp"));
    EXPECT_EQ(2, liblog_count("It is Symbolic Link, pass\n", "pelkd", ANDROID_LOG_INFO, LOG_ID_SYSTEM));
    EXPECT_EQ(1, liblog_count("File encrpyted/Decrypted : </data/dst/top.txt>", "pelkd", ANDROID_LOG_INFO));
    EXPECT_EQ(1, liblog_count("cryptInplace /data/src => /data/dst", "pelkd", ANDROID_LOG_INFO));
}

TEST_F(TreeRewrite, CryptInplaceInPlaceKeepsEveryByte) {
    std::string payload(12345, '\0');
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(i * 7);
    ASSERT_TRUE(holders::writeFile("/data/same/a/f", 1));
    std::ofstream("/data/same/a/f", std::ios::binary) << payload;
    EXPECT_EQ(0, mPelk.cryptInplace("/data/same", "/data/same", false));
    EXPECT_EQ(payload, readFile("/data/same/a/f"));
    EXPECT_FALSE(exists("/data/same/a/f.tmp"));
}

TEST_F(TreeRewrite, CryptInplaceSourcesThatAreMissingOrFailToCopy) {
    EXPECT_EQ(0, mPelk.cryptInplace("/data/missing", "/data/dst", false));
    EXPECT_EQ(1, liblog_count("source : </data/missing> is a dangling link: ", "pelkd", ANDROID_LOG_INFO));
    EXPECT_EQ(1, liblog_count("returned error <0> errno 2 No such file or directory", "pelkd", ANDROID_LOG_ERROR));
    EXPECT_EQ(1, liblog_count("Link pass\n", "pelkd", ANDROID_LOG_INFO));
    EXPECT_FALSE(exists("/data/dst"));

    ASSERT_TRUE(holders::writeFile("/data/src/f", 500));
    devprofile::failNext("CopyFile");
    EXPECT_EQ(-1, mPelk.cryptInplace("/data/src", "/data/dst", false));
    EXPECT_EQ(500u, readFile("/data/src/f").size()) << "a failed copy keeps the source";
    EXPECT_FALSE(exists("/data/dst/f.tmp"));
    EXPECT_FALSE(exists("/data/dst/f"));
    EXPECT_EQ(1, liblog_count("Encryptfile reutnred error for nsrc <(null)>", "pelkd", ANDROID_LOG_ERROR));
}

TEST_F(TreeRewrite, EncryptionMarker) {
    ASSERT_TRUE(mounts::makeDirs("/data/enc"));
    EXPECT_EQ(-1, mPelk.checkEncryptMetaData("/data/enc"));
    EXPECT_EQ(0, mPelk.createEncryptMetaData("/data/enc"));
    EXPECT_EQ("Cryptfs: Dont delete this file!", readFile("/data/enc/.MetaEcfsFile"));
    EXPECT_STREQ("/data/enc/.MetaEcfsFile", mPelk.mMetaPath);
    EXPECT_EQ(0, mPelk.checkEncryptMetaData("/data/enc"));
    EXPECT_EQ(0, mPelk.deleteEncryptMetaData("/data/enc"));
    EXPECT_EQ(-1, mPelk.checkEncryptMetaData("/data/enc"));
    EXPECT_EQ(-1, mPelk.deleteEncryptMetaData("/data/enc"));

    EXPECT_EQ(-1, mPelk.createEncryptMetaData("/data/no/such/dir"));

    // A marker path that does not fit the 256-byte buffer is never cut into
    // the name of another file.
    std::string longDir = "/data/" + std::string(240, 'd');
    ASSERT_TRUE(mounts::makeDirs(longDir));
    ASSERT_TRUE(holders::writeFile(longDir + "/.MetaEc", 1));
    EXPECT_EQ(-1, mPelk.createEncryptMetaData(longDir.c_str()));
    EXPECT_EQ(-1, mPelk.deleteEncryptMetaData(longDir.c_str()));
    EXPECT_EQ(0, mPelk.checkEncryptMetaData(longDir.c_str())) << "cannot tell";
    EXPECT_EQ(1u, readFile(longDir + "/.MetaEc").size());
}

}  // namespace
