// The DLP library's pending-inode and open-file maps: one state for the whole
// device, kept across processes, with the refusals the daemon relies on.
#include <dlp/dlp.h>
#include <dlp/dlp_records.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "devprofile/DeviceProfile.h"

namespace {

// Runs body in a child process and answers its exit status.
template <typename Body>
int inChild(Body body) {
    pid_t pid = fork();
    if (pid == 0) _exit(body());
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(DlpPendingInodes, StoredByAnotherProcessAreReadAndClearedOnce) {
    ASSERT_EQ(0, inChild([] { return putPendingInodeValue(4294967301UL, 812) ? 0 : 1; }));
    EXPECT_EQ(getPidByInode(4294967301UL), 812);
    EXPECT_LT(getPidByInode(5), 1);  // inodes are not cut to 32 bits

    EXPECT_TRUE(putPendingInodeValue(4294967301UL, 813));  // a newer init wins
    EXPECT_EQ(getPidByInode(4294967301UL), 813);
    EXPECT_EQ(0, inChild([] { return clearPendingInode(4294967301UL) ? 0 : 1; }));
    EXPECT_FALSE(clearPendingInode(4294967301UL));
    EXPECT_LT(getPidByInode(4294967301UL), 1);
    EXPECT_TRUE(dlp_pending_inodes().empty());
}

TEST(DlpPendingInodes, PidsThatCouldNotBeReadBackAndArmedFailuresStoreNothing) {
    EXPECT_FALSE(putPendingInodeValue(7, 0));
    EXPECT_FALSE(putPendingInodeValue(7, -3));
    devprofile::failNext("putPendingInodeValue");
    EXPECT_FALSE(putPendingInodeValue(7, 100));
    EXPECT_TRUE(dlp_pending_inodes().empty());

    ASSERT_TRUE(putPendingInodeValue(7, 100));
    devprofile::failNext("clearPendingInode");
    EXPECT_FALSE(clearPendingInode(7));
    EXPECT_EQ(getPidByInode(7), 100);
}

TEST(DlpOpenFiles, EachPidKeepsItsPathsOnce) {
    char a[] = "/data/user/10/a.txt";
    char b[] = "/data/user/10/b\tc.txt";
    EXPECT_EQ(addOrUpdateMapEntry(300, a), 0);
    EXPECT_EQ(addOrUpdateMapEntry(300, b), 0);
    EXPECT_EQ(addOrUpdateMapEntry(300, a), 0);
    EXPECT_EQ(0, inChild([&] { return addOrUpdateMapEntry(301, a); }));
    EXPECT_EQ(addOrUpdateMapEntry(0, a), -1);
    EXPECT_EQ(addOrUpdateMapEntry(302, nullptr), -1);

    EXPECT_EQ(dlp_open_files(300), (std::vector<std::string>{a, b}));
    EXPECT_EQ(dlp_open_files(301), (std::vector<std::string>{a}));
    EXPECT_TRUE(dlp_open_files(0).empty());
    EXPECT_EQ(dlp_calls("addOrUpdateMapEntry").size(), 6u);

    dlp_calls_clear();
    EXPECT_TRUE(dlp_open_files(300).empty());
}
