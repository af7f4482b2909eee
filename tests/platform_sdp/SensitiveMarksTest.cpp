// Marks of the sensitive-data library: on the entry itself, naming the
// engine, never through a link; every call recorded for the whole device.
#include <gtest/gtest.h>
#include <sdp/sdp.h>
#include <sdp/sdp_records.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include "devprofile/DeviceProfile.h"
#include "support/Files.h"

TEST(SensitiveMarks, FilesAndDirectoriesCarryTheEngineOfTheirMark) {
    ASSERT_TRUE(testfs::writeFile("/data/user/10/tree/a.txt", "x"));
    char dir[] = "/data/user/10/tree";
    char file[] = "/data/user/10/tree/a.txt";
    pid_t child = fork();
    if (child == 0) _exit(set_sensitive(10, dir) == 0 && set_protected(file) == 0 ? 0 : 1);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

    EXPECT_EQ(sdp_sensitive_of(dir), 10);
    EXPECT_FALSE(sdp_is_protected(dir));
    EXPECT_EQ(sdp_sensitive_of(file), -1);
    EXPECT_TRUE(sdp_is_protected(file));

    EXPECT_EQ(set_sensitive(11, dir), 0);  // marked again for another engine
    EXPECT_EQ(sdp_sensitive_of(dir), 11);

    auto calls = sdp_calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].function, "set_sensitive");
    EXPECT_EQ(calls[0].userId, 10);
    EXPECT_EQ(calls[0].path, dir);
    EXPECT_EQ(calls[1].function, "set_protected");
    EXPECT_EQ(calls[1].path, file);
    EXPECT_EQ(calls[1].result, 0);
}

TEST(SensitiveMarks, LinksDevicesAndMissingFilesAreRecordedButNotMarked) {
    ASSERT_TRUE(testfs::writeFile("/data/user/10/target.txt", "x"));
    ASSERT_EQ(symlink("/data/user/10/target.txt", "/data/user/10/link"), 0);
    ASSERT_EQ(mknod("/data/user/10/null", S_IFCHR | 0600, makedev(1, 3)), 0);
    char link[] = "/data/user/10/link";
    char node[] = "/data/user/10/null";
    char missing[] = "/data/user/10/none";
    EXPECT_EQ(set_sensitive(10, link), -1);
    EXPECT_EQ(set_protected(node), -1);
    EXPECT_EQ(set_protected(missing), -1);
    EXPECT_EQ(sdp_sensitive_of("/data/user/10/target.txt"), -1);  // not through the link
    EXPECT_EQ(sdp_sensitive_of(link), -1);

    devprofile::failNext("set_sensitive");
    char target[] = "/data/user/10/target.txt";
    EXPECT_EQ(set_sensitive(10, target), -1);
    EXPECT_EQ(sdp_sensitive_of(target), -1);

    auto calls = sdp_calls();
    ASSERT_EQ(calls.size(), 4u);
    for (const SdpCall& c : calls) EXPECT_EQ(c.result, -1) << c.path;
    EXPECT_EQ(calls[1].path, node);
    EXPECT_EQ(calls[1].userId, -1);

    sdp_calls_clear();
    EXPECT_TRUE(sdp_calls().empty());
}
