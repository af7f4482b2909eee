// Directory chains with the partition's owner and mode, the legacy relative
// directories, and the small path questions.
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <selinux/restorecon_records.h>

#include <string>

#include "devprofile/DeviceProfile.h"
#include "partition/Partition.h"
#include "support/Files.h"

using namespace testfs;

namespace {

TEST(MakeDirectory, NewDirectoriesGetModeAndOwnerExistingOnesAreLeftAlone) {
    devprofile::set("user.150", "zanth");
    Partition p(150, "/data/t/src", "/data/t/mnt", false);
    makeDirs("/data/a");
    chmod("/data/a", 0700);
    Umask strict(077);  // the chmod after mkdir must win over the umask
    restorecon_clear();

    ASSERT_EQ(p.makeDirectory("/data/a/b/c", 0750, 1000, 1001), 0);
    EXPECT_EQ(modeOf("/data/a"), 0700u);
    EXPECT_EQ(statOf("/data/a").st_uid, 0u);
    for (const char* made : {"/data/a/b", "/data/a/b/c"}) {
        EXPECT_EQ(modeOf(made), 0750u) << made;
        EXPECT_EQ(statOf(made).st_uid, 1000u) << made;
        EXPECT_EQ(statOf(made).st_gid, 1001u) << made;
    }
    EXPECT_EQ(restorecon_count("/data/a/b/", 150, 0x90), 1);
    EXPECT_EQ(restorecon_count("/data/a/b/c/", 150, 0x90), 1);
    EXPECT_EQ(restorecon_calls().size(), 2u);  // nothing for the directories that were there

    // Not a container user: no label restores.
    Partition owner(0, "/data/t/src", "/data/t/mnt", false);
    restorecon_clear();
    ASSERT_EQ(owner.makeDirectory("/data/q/r", 0700, 0, 0), 0);
    EXPECT_TRUE(restorecon_calls().empty());
}

TEST(MakeDirectory, ALinkInTheChainIsFollowedButNotGivenAway) {
    Partition p(0, "/data/t/src", "/data/t/mnt", false);
    makeDirs("/data/real");
    ASSERT_EQ(symlink("/data/real", "/data/ln"), 0);
    ASSERT_EQ(p.makeDirectory("/data/ln/new", 0750, 1000, 1000), 0);
    EXPECT_TRUE(exists("/data/real/new"));
    EXPECT_EQ(statOf("/data/real/new").st_uid, 0u);  // not canonical, so not chowned

    liblog_clear();
    EXPECT_EQ(p.isCanonicalPath("/data/ln/new"), -1);
    EXPECT_EQ(liblog_count("/data/ln/new is absolute path Skipped..\n", "pelkd"), 1);
    EXPECT_EQ(p.isCanonicalPath("/data/real/new/"), 1);
    EXPECT_EQ(liblog_count("Resolved srcpath - srcPath: /data/real/new\n", "pelkd"), 1);
    EXPECT_EQ(p.isCanonicalPath("/data/missing"), -1);
}

TEST(MakeDirectory, RefusalsAndFailuresAnswerMinusOne) {
    devprofile::set("user.150", "zanth");
    Partition p(150, "/data/t/src", "/data/t/mnt", false);
    EXPECT_EQ(p.makeDirectory(("/data/" + std::string(4090, 'x')).c_str(), 0700, 0, 0), -1);
    EXPECT_EQ(liblog_count("the length of path is too long\n", "pelkd", ANDROID_LOG_ERROR), 1);

    ASSERT_TRUE(writeFile("/data/afile"));
    EXPECT_EQ(p.makeDirectory("/data/afile/sub", 0700, 0, 0), -1);
    EXPECT_EQ(liblog_count("mkdir failed for /data/afile/sub/, Not a directory\n", "pelkd", ANDROID_LOG_ERROR), 1);

    devprofile::failNext("selinux_android_restorecon_internal");
    EXPECT_EQ(p.makeDirectory("/data/labelled/x", 0700, 0, 0), -1);
    EXPECT_EQ(liblog_count("Error makeDirectory SELinux restorecon path(/data/labelled/) containerID(150)\n", "pelkd"),
              1);
    EXPECT_FALSE(exists("/data/labelled/x"));
}

TEST(MakeRelativeDirectory, OnlyForLegacyContainersAndWithoutChown) {
    devprofile::set("user.150", "zanth");
    Partition p(150, 'f', nullptr, false);
    const std::string mnt = p.mMntPath;
    EXPECT_EQ(p.makeRelativeDirectory("/Android/obb", 0771), 1);
    EXPECT_FALSE(exists(mnt + "/Android"));

    devprofile::set("user.150", "zanth,legacy");
    Umask relaxed(0);
    restorecon_clear();
    EXPECT_EQ(p.makeRelativeDirectory("/Android/obb", 0771), 0);
    EXPECT_EQ(modeOf(mnt + "/Android/obb"), 0771u);
    EXPECT_EQ(statOf(mnt + "/Android/obb").st_uid, 0u);
    EXPECT_EQ(restorecon_count(mnt + "/Android/obb/", 150, 0x90), 1);
    EXPECT_EQ(liblog_count("makeRelativeDirectory: " + mnt + "/Android/obb", "pelkd", ANDROID_LOG_DEBUG), 1);

    ASSERT_TRUE(writeFile(mnt + "/blocker"));
    EXPECT_EQ(p.makeRelativeDirectory("/blocker/x", 0771), -ENOTDIR);
}

TEST(PathQuestions, ParentDirectoryAndSdcardTree) {
    Partition p(0, "/data/t/src", "/data/t/mnt", false);
    char out[Partition::PATH_SIZE];
    testing::internal::CaptureStdout();
    EXPECT_EQ(p.extractDirectory("/a/b/c", out), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[0]a\n[1]b\n[2]c\n");
    EXPECT_STREQ(out, "/a/b");
    testing::internal::CaptureStdout();
    EXPECT_EQ(p.extractDirectory("rel/file/", out), 0);
    EXPECT_EQ(p.extractDirectory("/top", out + 100), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_STREQ(out, "/rel");
    EXPECT_STREQ(out + 100, "");
    EXPECT_EQ(p.extractDirectory(std::string(4096, 'a').c_str(), out), -1);

    EXPECT_TRUE(p.isSdcardPath("/mnt/runtime/default/emulated"));
    EXPECT_FALSE(p.isSdcardPath("/mnt/runtime/default/emulate"));
}

}  // namespace
