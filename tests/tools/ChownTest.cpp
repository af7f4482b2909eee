// chown_pelkd and its recursive walk on real trees of the device.
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/Files.h"
#include "tools/Chown.h"
#include "tools/ToolWords.h"

namespace {

const std::string kRoot = "/data/chown";

// Runs chown_pelkd with "chown" and these words, like a command line.
int chownWords(std::vector<std::string> words, int recursive = 0) {
    toolwords::Argv argv = toolwords::command("chown", std::move(words));
    return chown_pelkd(argv.count(), argv.data(), recursive);
}

using testfs::uidOf;
gid_t gidOf(const std::string& path) { return testfs::statOf(path).st_gid; }
// "uid:gid" of path, to compare both at once.
std::string ownerOf(const std::string& path) { return std::to_string(uidOf(path)) + ":" + std::to_string(gidOf(path)); }

int loggedMain(const std::string& text) { return liblog_count(text, "pelkd", ANDROID_LOG_ERROR, LOG_ID_MAIN); }

}  // namespace

TEST(Chown, UserSpecsByNumberAndName) {
    const std::string file = kRoot + "/f";
    ASSERT_TRUE(testfs::writeFile(file));
    EXPECT_EQ(0, chownWords({"1000.1000", file}));
    EXPECT_EQ("1000:1000", ownerOf(file));
    EXPECT_EQ(1, loggedMain("chown user=1000.1000"));

    // ":" wins over "."; numbers are read with base 0, trailing text ignored;
    // a known name without a group leaves the group.
    const char* owners[][2] = {
        {"0x3e9:010", "1001:8"}, {"1002abc", "1002:8"}, {"nobody", "65534:8"}, {"root:root", "0:0"}};
    for (const auto& owner : owners) {
        EXPECT_EQ(0, chownWords({owner[0], file})) << owner[0];
        EXPECT_EQ(owner[1], ownerOf(file)) << owner[0];
    }
}

TEST(Chown, UnknownNamesMissingFilesAndTooFewWords) {
    const std::string file = kRoot + "/f";
    ASSERT_TRUE(testfs::writeFile(file));
    EXPECT_EQ(-22, chownWords({"nosuchuser", file}));
    EXPECT_EQ(1, loggedMain("No such user 'nosuchuser'\n"));
    EXPECT_EQ(-22, chownWords({"1000:nosuchgroup", file}));
    EXPECT_EQ(1, loggedMain("No such group 'nosuchgroup'\n"));
    EXPECT_EQ(0u, uidOf(file));

    // The first failure stops the run; files before it stay changed.
    const std::string missing = kRoot + "/missing";
    EXPECT_EQ(-22, chownWords({"1000", file, missing, kRoot}));
    EXPECT_EQ(1000u, uidOf(file));
    EXPECT_EQ(0u, uidOf(kRoot));
    EXPECT_EQ(1, loggedMain("Unable to chown " + missing + ": No such file or directory\n"));

    EXPECT_EQ(10, chownWords({"1000"}));
    EXPECT_EQ(1, loggedMain("Usage: chown <USER>[:GROUP] <FILE1> [FILE2] ...\n"));

    // The owner word is cut to 31 characters before it is read.
    EXPECT_EQ(-22, chownWords({"u" + std::string(40, 'x'), file}));
    EXPECT_EQ(1, loggedMain("No such user 'u" + std::string(30, 'x') + "'\n"));
}

TEST(Chown, RecursiveWalksOnlyTheFirstFileAndSkipsLinks) {
    const std::string tree = kRoot + "/tree";
    const std::string other = kRoot + "/other";
    ASSERT_TRUE(testfs::writeFile(tree + "/a/b/deep"));
    ASSERT_TRUE(testfs::writeFile(tree + "/top"));
    ASSERT_TRUE(testfs::writeFile(other));
    ASSERT_EQ(0, symlink(other.c_str(), (tree + "/link").c_str()));

    EXPECT_EQ(0, chownWords({"1000.1001", tree, other}, 1));
    for (const char* p : {"", "/a", "/a/b", "/a/b/deep", "/top"}) EXPECT_EQ("1000:1001", ownerOf(tree + p)) << p;
    EXPECT_EQ(0u, uidOf(tree + "/link"));  // the link itself
    EXPECT_EQ(0u, uidOf(other));           // neither its target nor the second file
    EXPECT_EQ(1, loggedMain("chown_recursive :: skip link file"));

    EXPECT_EQ(0, chown_recursive((kRoot + "/missing").c_str(), 1000, 1000));
    EXPECT_EQ(0, chown_migration(const_cast<char*>(other.c_str()), 1003, 1003));
    EXPECT_EQ(1003u, uidOf(other));
}

TEST(Chown, AFailedChildAnswersAPositiveErrnoThatItsGrandparentSwallows) {
    // A read-only mount cannot change owner: chown answers -1 for it.
    const std::string top = kRoot + "/top";
    const std::string parent = top + "/parent";
    const std::string readOnly = parent + "/ro";
    ASSERT_TRUE(testfs::makeDirs(readOnly));
    ASSERT_EQ(0, mount("tmpfs", readOnly.c_str(), "tmpfs", MS_RDONLY, nullptr));

    EXPECT_EQ(-1, chown_recursive(readOnly.c_str(), 1000, 1000));
    EXPECT_EQ(EROFS, chown_recursive(parent.c_str(), 1000, 1000));
    EXPECT_EQ(0u, uidOf(parent));
    // The positive value is not a failure to the level above: it goes on.
    EXPECT_EQ(0, chown_recursive(top.c_str(), 1000, 1000));
    EXPECT_EQ(1000u, uidOf(top));
    EXPECT_EQ(0u, uidOf(parent));
    EXPECT_EQ(0, umount(readOnly.c_str()));
}
