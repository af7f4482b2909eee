// Creating, clearing and removing a storage area's directories, and removing
// files that a process still holds, against real trees in the device.
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <selinux/restorecon_records.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "devprofile/DeviceProfile.h"
#include "partition/Partition.h"
#include "support/Files.h"

using namespace testfs;

namespace {

std::vector<std::pair<std::string, int>> gFilterCalls;

int keepEntriesNamedKeep(const char* name, int isDir) {
    gFilterCalls.emplace_back(name, isDir);
    return std::string(name) == "keep" ? 1 : 0;
}

TEST(PartitionCreate, WipesAnExistingSourceAndMakesBothDirectoriesWithTheAreasOwner) {
    devprofile::set("user.150", "zanth");
    Partition p(150, 'e', nullptr, false);
    const std::string src = p.mSrcPath, mnt = p.mMntPath;
    ASSERT_TRUE(writeFile(src + "/old/state", 10));
    restorecon_clear();

    ASSERT_EQ(p.create(nullptr, 0), 0);
    EXPECT_FALSE(exists(src + "/old"));
    for (const std::string& dir : {src, mnt}) {
        struct stat st = statOf(dir);
        EXPECT_TRUE(S_ISDIR(st.st_mode)) << dir;
        EXPECT_EQ(st.st_mode & 07777, p.mMode) << dir;
        EXPECT_EQ(st.st_uid, p.mUid) << dir;
        EXPECT_EQ(st.st_gid, p.mGid) << dir;
        EXPECT_EQ(restorecon_count(dir + "/", 150, 0x90), 1) << dir;
    }
    EXPECT_EQ(liblog_count("Partition::create", "pelkd", ANDROID_LOG_DEBUG), 1);
}

TEST(PartitionRemove, RefusesWhileMountedAndDeletesNothing) {
    Partition p(150, 'e', nullptr, false);
    ASSERT_EQ(p.create(nullptr, 0), 0);
    const std::string src = p.mSrcPath, mnt = p.mMntPath;
    ASSERT_TRUE(writeFile(src + "/data/kept", 4));
    ASSERT_EQ(mount(p.mSrcPath, p.mMntPath, nullptr, MS_BIND, nullptr), 0);

    EXPECT_EQ(p.remove(), -1);
    EXPECT_EQ(liblog_count("the partition is mounted at [" + mnt + "]", "pelkd", ANDROID_LOG_ERROR), 1);
    EXPECT_TRUE(exists(src + "/data/kept"));
    EXPECT_TRUE(exists(mnt + "/data/kept"));

    ASSERT_EQ(umount2(p.mMntPath, 0), 0);
    EXPECT_EQ(p.remove(), 0);
    EXPECT_FALSE(exists(src));
    EXPECT_FALSE(exists(mnt));
}

TEST(PartitionRemove, AFailureOnTheMountPathIsReportedUnderTheSourcePath) {
    Partition p(150, 'e', nullptr, false);
    const std::string src = p.mSrcPath;
    makeDirs(src);  // the mount path is missing
    EXPECT_EQ(p.remove(), -1);
    EXPECT_FALSE(exists(src));
    EXPECT_EQ(
        liblog_count("remove directory " + src + " failed : 2(No such file or directory)", "pelkd", ANDROID_LOG_ERROR),
        1);
}

TEST(PartitionClear, AKeptEntryIsNeitherEnteredNorDeletedAndTheDirectoryStays) {
    Partition p(150, 'e', nullptr, false);
    const std::string root = "/data/clear";
    ASSERT_TRUE(writeFile(root + "/keep/inside", 3));
    ASSERT_TRUE(writeFile(root + "/drop/deeper/file", 3));
    ASSERT_TRUE(writeFile(root + "/plain", 3));
    // A link to a directory elsewhere goes, what it points to stays.
    ASSERT_TRUE(writeFile("/data/elsewhere/precious", 3));
    ASSERT_EQ(symlink("/data/elsewhere", (root + "/link").c_str()), 0);

    gFilterCalls.clear();
    errno = 0;
    EXPECT_EQ(p.clearDirectory(root.c_str(), 1, keepEntriesNamedKeep), -1);
    EXPECT_EQ(errno, ENOTEMPTY);
    EXPECT_TRUE(exists(root + "/keep/inside"));
    EXPECT_FALSE(exists(root + "/drop"));
    EXPECT_FALSE(exists(root + "/plain"));
    EXPECT_FALSE(exists(root + "/link"));
    EXPECT_TRUE(exists("/data/elsewhere/precious"));

    std::map<std::string, int> seen(gFilterCalls.begin(), gFilterCalls.end());
    EXPECT_EQ(seen.count("inside"), 0u);  // the kept directory was not entered
    EXPECT_EQ(seen["keep"], 1);
    EXPECT_EQ(seen["drop"], 1);
    EXPECT_EQ(seen["deeper"], 1);
    EXPECT_EQ(seen["file"], 0);
    EXPECT_EQ(seen["link"], 0);
}

TEST(PartitionClear, ContentsOnlyOrWholeAndAMissingDirectory) {
    Partition p(150, 'e', nullptr, false);
    ASSERT_TRUE(writeFile("/data/tree/a/b/c", 3));
    ASSERT_TRUE(writeFile("/data/tree/x", 3));
    EXPECT_EQ(p.clearDirectory("/data/tree", 0, nullptr), 0);
    EXPECT_TRUE(exists("/data/tree"));
    EXPECT_FALSE(exists("/data/tree/a"));
    EXPECT_FALSE(exists("/data/tree/x"));

    ASSERT_TRUE(writeFile("/data/tree/y/z", 3));
    EXPECT_EQ(p.removeDirectory("/data/tree"), 0);
    EXPECT_FALSE(exists("/data/tree"));

    EXPECT_EQ(p.clearDirectory("/data/tree", 1, nullptr), -ENOENT);
    EXPECT_EQ(liblog_count("Couldn't opendir /data/tree: No such file or directory\n", "pelkd", ANDROID_LOG_ERROR,
                           LOG_ID_MAIN),
              1);
    EXPECT_FALSE(p.isDirectory("/data/tree"));
}

TEST(PartitionRemoveFile, MissingOrPlainFilesAreDoneAtOnce) {
    Partition p(150, 'e', nullptr, false);
    EXPECT_EQ(p.removeFile("/data/nothing"), 0);
    EXPECT_EQ(liblog_count("/data/nothing sucessfully removed", "pelkd", ANDROID_LOG_INFO), 1);
    ASSERT_TRUE(writeFile("/data/gone", 3));
    EXPECT_EQ(p.removeFile("/data/gone"), 0);
    EXPECT_FALSE(exists("/data/gone"));
    EXPECT_FALSE(liblog_any_contains("Failed REMOVE"));
}

TEST(PartitionRemoveFile, RetriesKillTheHoldersThenGiveUpWithBusy) {
    Partition p(150, 'e', nullptr, false);
    // A directory cannot be unlinked, so every try fails; a child holds a
    // file inside it and is in the killer's way.
    const std::string dir = "/data/stuck";
    ASSERT_TRUE(writeFile(dir + "/held", 3));
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t holder = fork();
    if (holder == 0) {
        bool ok = open((dir + "/held").c_str(), O_RDONLY) >= 0;
        if (write(ready[1], ok ? "y" : "n", 1) != 1) _exit(1);
        for (;;) pause();
    }
    char answer = 0;
    ASSERT_EQ(read(ready[0], &answer, 1), 1);
    ASSERT_EQ(answer, 'y');
    close(ready[0]);
    close(ready[1]);

    errno = 0;
    EXPECT_EQ(p.removeFile(dir.c_str()), -1);
    EXPECT_EQ(errno, EBUSY);
    int status = 0;
    ASSERT_EQ(waitpid(holder, &status, 0), holder);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);

    const std::string err = strerror(EISDIR);
    EXPECT_EQ(liblog_count("Failed REMOVE " + dir + " (" + err + ", retries 2, action 1)", "pelkd", ANDROID_LOG_WARN),
              1);
    EXPECT_EQ(liblog_count("Failed REMOVE " + dir + " (" + err + ", retries 1, action 2)", "pelkd", ANDROID_LOG_WARN),
              1);
    EXPECT_EQ(liblog_count("Failed REMOVE " + dir + " (" + err + ", retries 0, action 0)", "pelkd", ANDROID_LOG_WARN),
              1);
    EXPECT_EQ(liblog_count("Kill processes opening and [" + dir + "]", "pelkd", ANDROID_LOG_INFO), 3);
    EXPECT_EQ(liblog_count("Giving up on remove " + dir + " (" + strerror(EBUSY) + ")", "pelkd", ANDROID_LOG_ERROR), 1);
    EXPECT_EQ(liblog_count("Sending SIGHUP to process " + std::to_string(holder), "ProcessKiller"), 1);
}

}  // namespace
