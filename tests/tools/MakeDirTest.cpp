// mkdir_pelkd: plain and -p, owners of what it makes, the length limit.
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>

#include <string>
#include <vector>

#include "support/Files.h"
#include "tools/MakeDir.h"
#include "tools/ToolWords.h"

namespace {

const std::string kRoot = "/data/mk";

int mkdirWords(std::vector<std::string> words, const char* owner = "1000.1000") {
    toolwords::Argv argv = toolwords::command("mkdir", std::move(words));
    return mkdir_pelkd(argv.count(), argv.data(), owner);
}

using testfs::uidOf;

// kRoot followed by components of at most 200 characters, `length`
// characters in all (no trailing slash).
std::string pathOfLength(size_t length) {
    std::string path = kRoot;
    while (path.size() < length) {
        size_t part = std::min<size_t>(200, length - path.size() - 1);
        if (part == 0) {  // one character left: lengthen the last component
            path += "y";
            break;
        }
        path += "/" + std::string(part, 'x');
    }
    return path;
}

}  // namespace

TEST(MakeDir, ParentsAreMadeAndGivenToTheOwner) {
    ASSERT_TRUE(testfs::makeDirs(kRoot));
    EXPECT_EQ(0, mkdirWords({"-p", kRoot + "/a/b/c", kRoot + "//d/"}));
    for (const char* p : {"/a", "/a/b", "/a/b/c", "/d"}) {
        EXPECT_TRUE(S_ISDIR(testfs::statOf(kRoot + p).st_mode)) << p;
        EXPECT_EQ(1000u, uidOf(kRoot + p)) << p;
        EXPECT_EQ(1000u, testfs::statOf(kRoot + p).st_gid) << p;
    }
    EXPECT_EQ(0u, uidOf(kRoot));  // what existed keeps its owner
    EXPECT_EQ(4, liblog_count("chown_main 1000.1000 rc=0", "pelkd", ANDROID_LOG_DEBUG, LOG_ID_MAIN));

    // An existing directory is not an error with -p, and is left as it is.
    EXPECT_EQ(0, mkdirWords({"--parents", kRoot + "/a"}, "0.0"));
    EXPECT_EQ(1000u, uidOf(kRoot + "/a"));

    // An owner that cannot be resolved ends the run after the first mkdir.
    EXPECT_EQ(-22, mkdirWords({"-p", kRoot + "/e/f"}, "nosuchuser"));
    EXPECT_TRUE(testfs::exists(kRoot + "/e"));
    EXPECT_FALSE(testfs::exists(kRoot + "/e/f"));
}

TEST(MakeDir, PathsLongerThan4094CharactersAnswerOne) {
    const std::string longest = pathOfLength(4094);
    ASSERT_EQ(4094u, longest.size());
    EXPECT_EQ(0, mkdirWords({"-p", longest}));
    EXPECT_TRUE(testfs::exists(longest));

    const std::string tooLong = longest + "z";
    EXPECT_EQ(1, mkdirWords({"-p", tooLong}));
    EXPECT_EQ(1, liblog_count("Invalid path specified: too long\n"));
    EXPECT_FALSE(testfs::exists(tooLong));
}

TEST(MakeDir, PlainMkdirStopsAtTheFirstFailure) {
    ASSERT_TRUE(testfs::makeDirs(kRoot));
    EXPECT_EQ(0, mkdirWords({kRoot + "/one", kRoot + "/two"}));
    EXPECT_EQ(0u, uidOf(kRoot + "/one"));
    EXPECT_EQ(-1, mkdirWords({kRoot + "/three", kRoot + "/one", kRoot + "/four"}));
    EXPECT_TRUE(testfs::exists(kRoot + "/three"));
    EXPECT_FALSE(testfs::exists(kRoot + "/four"));
    EXPECT_EQ(
        1, liblog_count("mkdir failed for " + kRoot + "/one, File exists\n", "pelkd", ANDROID_LOG_DEBUG, LOG_ID_MAIN));
}

TEST(MakeDir, UsageGoesToStandardError) {
    const std::string usage =
        "mkdir [OPTION] <target>\n"
        "    --help           display usage and exit\n"
        "    -p, --parents    create parent directories as needed\n";
    for (const std::vector<std::string>& words : {std::vector<std::string>{}, {"--help"}, {"-p"}, {"--parents"}}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(-1, mkdirWords(words));
        EXPECT_EQ(usage, testing::internal::GetCapturedStderr());
    }
}
