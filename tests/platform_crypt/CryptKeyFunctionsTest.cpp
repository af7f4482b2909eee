// The host container encryption library's key functions, as the manager
// relies on them.
#include <crypt/crypt.h>
#include <devprofile/DeviceProfile.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include "support/Files.h"

namespace {

using testfs::lines;
using testfs::readFile;
using testfs::writeFile;

const char kEdk[] = "/data/system/users/zanth_edk_150";

int countEntries(const char* dir) {
    int n = 0;
    DIR* d = opendir(dir);
    while (dirent* e = d ? readdir(d) : nullptr) n += e->d_name[0] != '.';
    if (d) closedir(d);
    return n;
}

}  // namespace

TEST(CryptKeys, PasswordFileOpensOnlyWithItsPassword) {
    ASSERT_EQ(fips_create_edk(kEdk, "correct horse"), 0);
    struct stat st;
    ASSERT_EQ(stat(kEdk, &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    std::string file = readFile(kEdk);
    EXPECT_EQ(file.find("correct horse"), std::string::npos);
    EXPECT_EQ(fips_verify_password(kEdk, "correct horse"), 0);
    for (const char* wrong : {"correct hors", ""}) EXPECT_EQ(fips_verify_password(kEdk, wrong), -1) << wrong;
    EXPECT_EQ(fips_verify_password(kEdk, nullptr), -1);

    for (size_t i : {size_t(5), size_t(10), file.size() - 1}) {  // iterations, salt, tag
        std::string bad = file;
        bad[i] ^= 1;
        std::ofstream(kEdk, std::ios::binary) << bad;
        EXPECT_EQ(fips_verify_password(kEdk, "correct horse"), -1) << "byte " << i;
    }
    EXPECT_EQ(fips_delete_edk(kEdk), 0);
    EXPECT_EQ(fips_delete_edk(kEdk), -1);
    EXPECT_EQ(fips_verify_password(kEdk, "correct horse"), -1);
}

TEST(CryptKeys, ChangeRewrapsTheSameKey) {
    ASSERT_EQ(fips_create_edk(kEdk, "old"), 0);
    EXPECT_EQ(fips_change_password("wrong", "new", kEdk), -1);
    std::string before = readFile(kEdk);
    ASSERT_EQ(fips_change_password("old", "new", kEdk), 0);
    EXPECT_NE(readFile(kEdk), before);  // fresh salt and nonce
    EXPECT_EQ(fips_verify_password(kEdk, "old"), -1);
    EXPECT_EQ(fips_verify_password(kEdk, "new"), 0);
    EXPECT_EQ(countEntries("/data/system/users"), 2);  // "0" and the key file: no temporaries
}

TEST(CryptKeys, SsWriteReplacesWholeFilesOrNothing) {
    const char* path = "/data/system/users/record";
    ASSERT_EQ(ssWrite(path, "first", 5), 0);
    ASSERT_EQ(ssWrite(path, "second!", 7), 0);
    EXPECT_EQ(readFile(path), "second!");
    devprofile::failNext("ssWrite");
    EXPECT_EQ(ssWrite(path, "third", 5), -1);
    EXPECT_EQ(readFile(path), "second!");
    EXPECT_EQ(ssWrite("/data/no/such/dir/file", "x", 1), -1);
    EXPECT_EQ(countEntries("/data/system/users"), 2);
}

// A writer killed at random moments leaves the old or the new content,
// never a mix or a short file.
TEST(CryptKeys, SsWriteSurvivesAKilledWriter) {
    const char* path = "/data/system/users/big";
    const std::string a(256 * 1024, 'a'), b(256 * 1024, 'b');
    ASSERT_EQ(ssWrite(path, a.data(), static_cast<int>(a.size())), 0);
    for (int round = 0; round < 20; ++round) {
        pid_t child = fork();
        if (child == 0) {
            for (;;) {
                ssWrite(path, b.data(), static_cast<int>(b.size()));
                ssWrite(path, a.data(), static_cast<int>(a.size()));
            }
        }
        usleep(1000 + round * 500);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        std::string now = readFile(path);
        ASSERT_TRUE(now == a || now == b) << "round " << round << ": " << now.size() << " bytes";
    }
}
