// Clearing a directory whose sub-directories cannot all be looked into: the
// ones that cannot be opened are reported and left alone, and the walk goes
// on with the rest.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "partition/Partition.h"
#include "support/Files.h"

using namespace testfs;

namespace {

// True when this sandbox can switch to uid 1000 (real root, or a user
// namespace that maps more than one uid).
bool canSwitchUser() {
    std::ifstream map("/proc/self/uid_map");
    unsigned inside = 0, outside = 0, count = 0;
    map >> inside >> outside >> count;
    return count > 1000;
}

TEST(PartitionClearUnopenable, ASubdirectoryThatCannotBeOpenedSurvivesAndTheRestGoes) {
    if (!canSwitchUser()) GTEST_SKIP() << "this sandbox maps no uid 1000";
    const std::string root = "/data/clear";
    // Owned by the clearing process, so it may unlink in here; the two
    // locked folders are root's with no permission at all for it.
    ASSERT_TRUE(writeFile(root + "/lockedfull/inside", 3));
    makeDirs(root + "/lockedempty");
    ASSERT_TRUE(writeFile(root + "/open/file", 3));
    ASSERT_TRUE(writeFile(root + "/plain", 3));
    ASSERT_EQ(chown(root.c_str(), 1000, 1000), 0);
    ASSERT_EQ(chown((root + "/open").c_str(), 1000, 1000), 0);
    ASSERT_EQ(chown((root + "/open/file").c_str(), 1000, 1000), 0);
    ASSERT_EQ(chmod((root + "/lockedfull").c_str(), 0), 0);
    ASSERT_EQ(chmod((root + "/lockedempty").c_str(), 0), 0);

    // The log's record file is open before the fork, so the child's lines
    // still reach it after it has given up root.
    Partition p(150, 'e', nullptr, false);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (setgid(1000) != 0 || setuid(1000) != 0) _exit(100);
        _exit(p.clearDirectory(root.c_str(), 0, nullptr) == -1 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the walk did not answer -1";

    EXPECT_TRUE(exists(root + "/lockedempty"));
    EXPECT_TRUE(exists(root + "/lockedfull"));
    chmod((root + "/lockedfull").c_str(), 0755);
    EXPECT_TRUE(exists(root + "/lockedfull/inside"));
    EXPECT_FALSE(exists(root + "/open"));
    EXPECT_FALSE(exists(root + "/plain"));

    for (const char* name : {"lockedempty", "lockedfull"}) {
        EXPECT_EQ(liblog_count(std::string("Couldn't openat ") + name + ": Permission denied\n", "pelkd",
                               ANDROID_LOG_ERROR, LOG_ID_MAIN),
                  1)
            << name;
        EXPECT_EQ(liblog_count(std::string("Couldn't unlinkat ") + name + ": Directory not empty\n", "pelkd",
                               ANDROID_LOG_ERROR, LOG_ID_MAIN),
                  0)
            << name;
    }
}

}  // namespace
