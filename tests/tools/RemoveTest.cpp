// rm_pelkd and unlink_recursive on real trees, their kept oddities included.
#include <errno.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>

#include <string>
#include <vector>

#include "support/Files.h"
#include "tools/Remove.h"
#include "tools/ToolWords.h"

namespace {

const std::string kRoot = "/data/rm";

int rmWords(std::vector<std::string> words) {
    toolwords::Argv argv = toolwords::command("rm", std::move(words));
    return rm_pelkd(argv.count(), argv.data());
}

int loggedDebug(const std::string& text) { return liblog_count(text, "pelkd", ANDROID_LOG_DEBUG, LOG_ID_MAIN); }

}  // namespace

TEST(Remove, RecursiveOfOneFileRemovesItAndStillFails) {
    const std::string file = kRoot + "/one";
    ASSERT_TRUE(testfs::writeFile(file));
    EXPECT_LT(rmWords({"-r", file}), 0);
    EXPECT_FALSE(testfs::exists(file));
    EXPECT_TRUE(liblog_any_contains("rm failed for " + file + ", "));
}

TEST(Remove, RecursiveStopsAfterEachFileSoATreeTakesOneCallPerFile) {
    const std::string tree = kRoot + "/tree";
    for (const char* f : {"/a/1", "/a/2", "/b/3", "/4"}) ASSERT_TRUE(testfs::writeFile(tree + f));
    ASSERT_TRUE(testfs::makeDirs(tree + "/empty/deeper"));
    int calls = 0;
    while (testfs::exists(tree) && calls < 10) {
        int result = rmWords({"-R", tree});
        ++calls;
        if (testfs::exists(tree))
            EXPECT_LT(result, 0);
        else
            EXPECT_EQ(0, result);
    }
    EXPECT_EQ(5, calls);  // four files, then the directories alone

    // A tree of directories only goes in one call.
    ASSERT_TRUE(testfs::makeDirs(tree + "/x/y/z"));
    EXPECT_EQ(0, unlink_recursive(tree.c_str(), 0));
    EXPECT_FALSE(testfs::exists(tree));
}

TEST(Remove, ForcedStopsAtTheFirstMissingOperandWithSuccess) {
    EXPECT_EQ(0, rmWords({"-f", kRoot + "/m1", kRoot + "/m2", kRoot + "/m3"}));
    EXPECT_EQ(1, loggedDebug("rm_main return 0"));
    EXPECT_FALSE(liblog_any_contains("rm failed"));

    // Operands after the missing one are left alone.
    const std::string kept = kRoot + "/kept";
    ASSERT_TRUE(testfs::writeFile(kept));
    EXPECT_EQ(0, rmWords({"-f", kRoot + "/missing", kept}));
    EXPECT_TRUE(testfs::exists(kept));
}

TEST(Remove, PlainAndRecursiveFailuresAnswerTheNegatedErrno) {
    const std::string a = kRoot + "/a";
    const std::string b = kRoot + "/b";
    ASSERT_TRUE(testfs::writeFile(a));
    ASSERT_TRUE(testfs::writeFile(b));
    EXPECT_EQ(0, rmWords({a, b}));
    EXPECT_FALSE(testfs::exists(a));
    EXPECT_FALSE(testfs::exists(b));

    EXPECT_EQ(-ENOENT, rmWords({a}));
    EXPECT_EQ(1, loggedDebug("rm failed for " + a + ", No such file or directory\n"));
    EXPECT_EQ(-EISDIR, rmWords({kRoot}));
    EXPECT_EQ(-ENOENT, rmWords({"-r", a}));
    EXPECT_EQ(0, rmWords({"-rf", a}));
    EXPECT_EQ(0, rmWords({"-f"}));  // no operands
    EXPECT_TRUE(testfs::exists(kRoot));
}
