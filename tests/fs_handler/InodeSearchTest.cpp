// Finding a file by partition id and inode, and the marking walks.
#include <android/log.h>
#include <gtest/gtest.h>
#include <log/log_records.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "fs_handler/InodePaths.h"
#include "fs_handler/LibraryFakes.h"
#include "support/Kernel.h"

namespace {

const char kTag[] = "pelkd.fs_handler";

std::string find(int partition, unsigned long inode) {
    char result[4096] = {0};
    char type[] = "ecryptfs";
    return find_path_by_inode(partition, inode, type, result) ? result : "<not found>";
}

std::vector<std::string> sortedCalls(const std::string& prefix) {
    std::vector<std::string> calls = fakes::callsOf(prefix);
    std::sort(calls.begin(), calls.end());
    return calls;
}

class InodeSearch : public testing::Test {
protected:
    void SetUp() override {
        fakes::reset();
        liblog_clear();
    }
};

TEST_F(InodeSearch, MatchesThePartitionIdOfEcryptfsMountsOnly) {
    ASSERT_TRUE(kernel::mountEcryptfs("/data/p3", 10, 3));
    ASSERT_TRUE(kernel::mountEcryptfs("/data/p4", 10, 4));
    ASSERT_TRUE(testfs::writeFile("/data/p4/deep.txt"));
    ASSERT_TRUE(testfs::makeDirs("/data/plain"));
    ASSERT_TRUE(testfs::writeFile("/data/plain/other.txt"));
    EXPECT_EQ(find(4, kernel::inodeOf("/data/p4/deep.txt")), "/data/p4/deep.txt");
    EXPECT_EQ(find(3, kernel::inodeOf("/data/p4/deep.txt")), "<not found>");
    // Outside every eCryptfs mount nothing is found, whatever the id.
    EXPECT_EQ(find(-1, kernel::inodeOf("/data/plain/other.txt")), "<not found>");
    EXPECT_EQ(liblog_count("find_path_by_inode start", kTag, ANDROID_LOG_INFO, LOG_ID_SYSTEM), 3);
    EXPECT_EQ(liblog_count("find_path_by_inode done :: found", kTag, ANDROID_LOG_INFO), 1);
    EXPECT_EQ(liblog_count("find_path_by_inode done :: not found", kTag, ANDROID_LOG_INFO), 2);
}

TEST_F(InodeSearch, EveryMountWithTheIdIsSearchedInTableOrder) {
    ASSERT_TRUE(kernel::mountEcryptfs("/data/first", 10, 5));
    ASSERT_TRUE(kernel::mountEcryptfs("/data/second", 10, 5));
    ASSERT_TRUE(testfs::writeFile("/data/second/sub/inner.txt"));
    EXPECT_EQ(find(5, kernel::inodeOf("/data/second/sub/inner.txt")), "/data/second/sub/inner.txt");
    EXPECT_EQ(find(5, kernel::inodeOf("/data/second")), "/data/second");
    EXPECT_EQ(find(5, kernel::inodeOf("/data/second/sub")), "/data/second/sub");
}

TEST_F(InodeSearch, LinksAreJudgedByTheirOwnInodeAndNeverFollowed) {
    ASSERT_TRUE(kernel::mountEcryptfs("/data/links", 10, 6));
    ASSERT_TRUE(testfs::writeFile("/data/outside.txt"));
    ASSERT_EQ(symlink("/data/outside.txt", "/data/links/to-outside"), 0);
    ASSERT_EQ(symlink("/data", "/data/links/to-data"), 0);
    EXPECT_EQ(find(6, kernel::inodeOf("/data/links/to-outside")), "/data/links/to-outside");
    EXPECT_EQ(find(6, kernel::inodeOf("/data/outside.txt")), "<not found>");
}

TEST_F(InodeSearch, StartingPointsThatAreMissingOrFiles) {
    char missing[] = "/data/none";
    char file[] = "/data/file.txt";
    char result[4096];
    ASSERT_TRUE(testfs::writeFile(file));
    EXPECT_FALSE(get_path_by_inode(missing, 1, result));
    EXPECT_EQ(liblog_count("get_path_by_inode :: dir_path </data/none> is a dangling link\n", kTag, ANDROID_LOG_INFO),
              1);
    EXPECT_FALSE(get_path_by_inode(file, 1, result));
    EXPECT_EQ(liblog_count("get_path_by_inode :: dir_path </data/file.txt> not a directory \n", kTag), 1);
    EXPECT_TRUE(get_path_by_inode(file, kernel::inodeOf(file), result));
    EXPECT_STREQ(result, file);
}

TEST_F(InodeSearch, AnEntryWhosePathIsCutIsLoggedAndSkipped) {
    // Names of 200 characters, 21 levels deep: the last level's path does
    // not fit in 4096 bytes, so it cannot be stat'ed by its path.
    std::string deep = "/data/long";
    ASSERT_TRUE(testfs::makeDirs(deep));
    std::string name(200, 'n');
    int dirFd = open(deep.c_str(), O_RDONLY | O_DIRECTORY);
    for (int level = 0; level < 21; ++level) {
        ASSERT_EQ(mkdirat(dirFd, name.c_str(), 0755), 0);
        int next = openat(dirFd, name.c_str(), O_RDONLY | O_DIRECTORY);
        close(dirFd);
        dirFd = next;
        deep += "/" + name;
    }
    close(dirFd);
    ASSERT_TRUE(testfs::writeFile("/data/long/zz-after.txt"));
    char top[] = "/data/long";
    char result[4096];
    EXPECT_TRUE(get_path_by_inode(top, kernel::inodeOf("/data/long/zz-after.txt"), result));
    EXPECT_STREQ(result, "/data/long/zz-after.txt");
    char wanted[] = "/data/long";
    EXPECT_FALSE(get_path_by_inode(wanted, 1, result));
    // The log keeps the first 4068 bytes of a line; the cut path is longer.
    std::string logged = std::string("get_path_by_inode :: path <") + deep.substr(0, 4095);
    int lines = 0;
    for (const LogRecord& r : liblog_records()) lines += r.tag == kTag && logged.compare(0, r.text.size(), r.text) == 0;
    EXPECT_GE(lines, 1);
}

TEST_F(InodeSearch, MarkingWalksTopDirectoriesAndRegularFilesOnly) {
    ASSERT_TRUE(testfs::writeFile("/data/tree/a.txt"));
    ASSERT_TRUE(testfs::writeFile("/data/tree/sub/b.txt"));
    ASSERT_TRUE(testfs::makeDirs("/data/tree/empty"));
    ASSERT_EQ(symlink("a.txt", "/data/tree/link"), 0);
    ASSERT_EQ(symlink("/data/tree/sub", "/data/tree/sub/dirlink"), 0);
    ASSERT_EQ(mkfifo("/data/tree/sub/pipe", 0600), 0);
    char tree[] = "/data/tree";
    EXPECT_TRUE(recursive_set_sensitive(10, tree));
    EXPECT_EQ(sortedCalls("set_sensitive"),
              (std::vector<std::string>{"set_sensitive 10 /data/tree", "set_sensitive 10 /data/tree/a.txt",
                                        "set_sensitive 10 /data/tree/empty", "set_sensitive 10 /data/tree/sub",
                                        "set_sensitive 10 /data/tree/sub/b.txt"}));
    EXPECT_TRUE(recursive_set_protected(10, tree));
    EXPECT_EQ(sortedCalls("set_protected"),
              (std::vector<std::string>{"set_protected /data/tree", "set_protected /data/tree/a.txt",
                                        "set_protected /data/tree/empty", "set_protected /data/tree/sub",
                                        "set_protected /data/tree/sub/b.txt"}));
}

TEST_F(InodeSearch, MarkingAFileOrAMissingPath) {
    char file[] = "/data/one.txt";
    char link[] = "/data/one-link";
    char missing[] = "/data/missing";
    ASSERT_TRUE(testfs::writeFile(file));
    ASSERT_EQ(symlink("one.txt", link), 0);
    EXPECT_TRUE(recursive_set_sensitive(11, file));
    // The top is marked whatever its type.
    EXPECT_TRUE(recursive_set_protected(11, link));
    EXPECT_FALSE(recursive_set_sensitive(11, missing));
    EXPECT_EQ(fakes::library().calls,
              (std::vector<std::string>{"set_sensitive 11 /data/one.txt", "set_protected /data/one-link"}));
    EXPECT_EQ(liblog_count("recursive_set_sensitive :: can't stat /data/missing", kTag, ANDROID_LOG_ERROR), 1);
}

}  // namespace
