// The file, copy and package-directory commands over "pelk", as
// system_server sends them: replies, what changed on disk, and the lines
// logged for refused requests.
#include <dlp/dlp_records.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Daemon.h"
#include "devprofile/DeviceProfile.h"
#include "support/Files.h"

namespace {

using testfs::exists;
using testfs::readFile;
using testfs::writeFile;

const std::string kArea = "/data/media/10";
const std::string kPkgDir = "/data/user/10/com.example.app";

// One "copy" line from user 10 to user 11 with flag 0; `numbers` are the
// offset, length and size words.
std::string copyLine(const std::string& sub, const std::string& src, const std::string& dst,
                     const std::string& numbers = "0 0 0") {
    return "copy " + sub + " " + src + " 10 " + dst + " 11 0 " + numbers + "\n";
}

class FileCommands : public e2e::DaemonTest {
protected:
    std::vector<std::string> send(const std::string& lines) { return e2e::pelkctl({}, lines).lines; }
};

TEST_F(FileCommands, CopiesWholeAndInChunks) {
    ASSERT_TRUE(writeFile(kArea + "/src/a", "whole tree"));
    ASSERT_TRUE(writeFile(kArea + "/big", std::string(3000, 'c')));
    const std::string big = kArea + "/big";
    auto r = send(
        copyLine("whole", kArea + "/src", kArea + "/dst") + copyLine("chunk", big, big + ".copy", "0 1000 3000") +
        copyLine("chunk", big, big + ".copy", "1000 0x7d0 3000") + copyLine("move", big, kArea + "/x") +
        copyLine("chunk", big, kArea + "/part", "0 1000 3000") + copyLine("cancel", big, kArea + "/part", "0 0 3000"));
    EXPECT_EQ((std::vector<std::string>{"200 1 success", "201 2 on going", "200 3 success", "501 4 unknown sub-command",
                                        "201 5 on going", "200 6 success"}),
              r);
    EXPECT_EQ("whole tree", readFile(kArea + "/dst/a"));
    EXPECT_EQ(std::string(3000, 'c'), readFile(kArea + "/big.copy"));
    EXPECT_FALSE(exists(kArea + "/part"));
    EXPECT_EQ(1, liblog_count("copy (chunk) " + kArea + "/big -> " + kArea + "/big.copy [o:1000] [l:2000] [s:3000]",
                              "pelkd", ANDROID_LOG_INFO));
}

TEST_F(FileCommands, BadCopiesGetTheFailureReplyAndChangeNothing) {
    ASSERT_TRUE(writeFile(kArea + "/big", std::string(100, 'c')));
    ASSERT_TRUE(writeFile("/data/outside/keep", "keep"));
    ASSERT_EQ(0, symlink("/data/outside", (kArea + "/escape").c_str()));
    const std::string einval = std::string("failed -22 ") + strerror(EINVAL);
    const std::string big = kArea + "/big";
    auto r =
        send(copyLine("whole", big, kArea + "/../outside/keep") + copyLine("whole", big, kArea + "/escape/keep") +
             copyLine("chunk", big, kArea + "/c", "-5 10 100") + copyLine("chunk", big, kArea + "/c", "200 10 100") +
             copyLine("chunk", big, kArea + "/c", "0 10 -1") + copyLine("cancel", big, kArea + "/escape/keep") +
             copyLine("whole", std::string(5000, 'p'), kArea + "/d") + copyLine(std::string(40, 'w'), "a", "b"));
    EXPECT_EQ((std::vector<std::string>{"281 1 " + einval, "281 2 failed -40 " + std::string(strerror(ELOOP)),
                                        "281 3 " + einval, "281 4 " + einval, "281 5 " + einval, "281 6 failed -40",
                                        "281 7 " + einval, "501 8 unknown sub-command"}),
              r);
    EXPECT_EQ("keep", readFile("/data/outside/keep"));
    EXPECT_FALSE(exists(kArea + "/c"));
    EXPECT_EQ(1, liblog_count("copy ERROR [from_file=" + kArea + "/big from_id=10 to_file=" + kArea +
                                  "/escape/keep to_id=11 flag=0]",
                              "pelkd", ANDROID_LOG_ERROR));
}

TEST_F(FileCommands, ScanDirAnswersEntriesUntilTheEnd) {
    ASSERT_TRUE(writeFile(kArea + "/scan/b", ""));
    ASSERT_TRUE(writeFile(kArea + "/scan/a file", ""));
    auto r = send("scan_dir " + kArea + "/scan 0\nscan_dir " + kArea + "/scan 1\nscan_dir " + kArea +
                  "/scan 2\nscan_dir " + kArea + "/missing 0\n");
    EXPECT_EQ((std::vector<std::string>{"201 1 a file/b/", "201 2 b/", "200 3 success", "281 4 failed"}), r);
}

TEST_F(FileCommands, FileInfoDeleteAndPermissions) {
    ASSERT_TRUE(writeFile(kArea + "/tree/f", "12345"));
    ASSERT_TRUE(writeFile(kArea + "/full/f", ""));
    auto r = send("get_file_info " + kArea +
                  "/missing 10\n"
                  "delete_file " +
                  kArea +
                  "/tree/f 10\n"
                  "delete_file " +
                  kArea +
                  "/full 10\n"
                  "change_permission_migration " +
                  kArea +
                  "/tree 1010057 1010057 488\n"
                  "change_permission_migration " +
                  kArea + "/../outside 0 0 511\n");
    const std::string eperm = std::string("failed -1 ") + strerror(1);
    EXPECT_EQ((std::vector<std::string>{"281 1 " + eperm, "200 2 success", "281 3 " + eperm, "200 4 success",
                                        "281 5 failed -22 " + std::string(strerror(EINVAL))}),
              r);
    EXPECT_EQ(1, liblog_count("getFileInfoCmd :: Failed to lstat(" + kArea + "/missing) : " + strerror(ENOENT)));
    EXPECT_EQ(1, liblog_count("deleteFile ERROR [mFilePath=" + kArea + "/full mContainerId=10]"));
    EXPECT_FALSE(exists(kArea + "/tree/f"));
    EXPECT_TRUE(exists(kArea + "/full/f"));
    EXPECT_EQ(0750u, testfs::modeOf(kArea + "/tree"));
    EXPECT_EQ(1010057u, testfs::statOf(kArea + "/tree").st_uid);
}

TEST_F(FileCommands, DlpNoticesReachTheLibrary) {
    dlp_commands_clear();
    devprofile::failNext("handleDLPCommands");
    auto r = send("dlp_notify a b\ndlp_notify expiry 10 /data/x\n");
    EXPECT_EQ((std::vector<std::string>{"281 1 failed -1 " + std::string(strerror(1)), "200 2 success"}), r);
    EXPECT_EQ(1, liblog_count("forwardDLPCommand ERROR = -1"));
    EXPECT_EQ((std::vector<std::vector<std::string>>{{"dlp_notify", "expiry", "10", "/data/x"}}), dlp_commands());
}

class EncryptedPackages : public FileCommands {
protected:
    void prepareDevice() override {
        ASSERT_TRUE(writeFile("/data/system/packages.list", "com.example.app 10057 0 /data/user/0/x default\n"));
        ASSERT_TRUE(writeFile(kPkgDir + "/cache/c1", std::string(20000, 'c')));
        ASSERT_TRUE(writeFile(kPkgDir + "/files/f1", std::string(8000, 'f')));
        ASSERT_TRUE(testfs::makeDirs(kPkgDir + "/empty"));
    }
    std::vector<std::string> handle(const std::string& sub, const std::string& pkg, int type, int count,
                                    const std::string& items) {
        return send("handle_enc_pkg 10 " + sub + " " + pkg + " " + std::to_string(type) + " " + std::to_string(count) +
                    " " + items + " 0\n");
    }
};

TEST_F(EncryptedPackages, SizesInItemOrderAndClearing) {
    auto r = handle("calculate_pkg_dir", "com.example.app", 101, 5, "cache|empty|files");
    ASSERT_EQ(1u, r.size());
    long cache = 0, empty = 0, files = 0;
    ASSERT_EQ(3, sscanf(r[0].c_str(), "200 1 %ld %ld %ld ", &cache, &empty, &files)) << r[0];
    EXPECT_GT(cache, files);
    EXPECT_GT(files, empty);
    EXPECT_EQ(r[0].back(), ' ');

    // An item count of 0 measures nothing and succeeds.
    EXPECT_EQ(std::vector<std::string>{"200 1 "}, handle("calculate_pkg_dir", "com.example.app", 101, 0, "cache"));

    EXPECT_EQ(std::vector<std::string>{"200 1 clear_pkg_data_dir success"},
              handle("clear_pkg_data_dir", "com.example.app", 101, 1, "cache"));
    EXPECT_FALSE(exists(kPkgDir + "/cache/c1"));
    EXPECT_TRUE(exists(kPkgDir + "/cache"));
    EXPECT_TRUE(exists(kPkgDir + "/files/f1"));
}

TEST_F(EncryptedPackages, RefusedItemsAndPartitions) {
    ASSERT_EQ(0, symlink("/data/outside", (kPkgDir + "/link").c_str()));
    ASSERT_TRUE(writeFile("/data/outside/keep", "keep"));
    for (int type : {100, 109}) {
        EXPECT_EQ(std::vector<std::string>{"281 1 failed"},
                  handle("calculate_pkg_dir", "com.example.app", type, 1, "cache"));
    }
    EXPECT_EQ(2, liblog_count("Error!! unsupported base partition", "pelkd", ANDROID_LOG_ERROR));

    EXPECT_EQ(std::vector<std::string>{"281 1 failed"},
              handle("clear_pkg_data_dir", "com.example.app", 101, 1, "../../0"));
    EXPECT_EQ(std::vector<std::string>{"281 1 failed"},
              handle("clear_pkg_data_dir", "com.example.app", 101, 1, "link"));
    EXPECT_EQ(2, liblog_count("Only canonical path can be handled.."));
    EXPECT_EQ("keep", readFile("/data/outside/keep"));

    // An existing directory of a package that is not installed.
    ASSERT_TRUE(testfs::makeDirs("/data/user/10/com.example/cache"));
    EXPECT_EQ(std::vector<std::string>{"281 1 failed"}, handle("calculate_pkg_dir", "com.example", 101, 1, "cache"));
    EXPECT_EQ(1, liblog_count("It is not the real package on the system.."));
    EXPECT_EQ(std::vector<std::string>{"281 1 failed"}, handle("calculate_pkg_dir", "com.example.app", 101, 1, "|||"));
    EXPECT_EQ(std::vector<std::string>{"281 1 failed"}, handle("remove_pkg_dir", "com.example.app", 101, 1, "cache"));

    // A failure after the first item keeps what the first one cleared.
    EXPECT_EQ(std::vector<std::string>{"281 1 failed"},
              handle("clear_pkg_data_dir", "com.example.app", 101, 2, "cache|missing"));
    EXPECT_FALSE(exists(kPkgDir + "/cache/c1"));
}

}  // namespace
