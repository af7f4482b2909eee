#include <cutils/fs.h>
#include <cutils/properties.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "devprofile/DeviceProfile.h"

TEST(PropertyGet, AnswersTheProfileValueBoundedOrTheDefault) {
    char value[PROPERTY_VALUE_MAX];
    ASSERT_TRUE(devprofile::set("prop.ro.build.PDA", "G960FXXU"));
    EXPECT_EQ(property_get("ro.build.PDA", value, "dflt"), 8);
    EXPECT_STREQ(value, "G960FXXU");

    EXPECT_EQ(property_get("ro.unset", value, "dflt"), 4);
    EXPECT_STREQ(value, "dflt");
    memset(value, 'z', sizeof(value));
    EXPECT_EQ(property_get("ro.unset", value, nullptr), 0);
    EXPECT_STREQ(value, "");

    std::string longValue(200, 'v');
    devprofile::set("prop.ro.long", longValue);
    EXPECT_EQ(property_get("ro.long", value, ""), PROPERTY_VALUE_MAX - 1);
    EXPECT_EQ(std::string(value), longValue.substr(0, PROPERTY_VALUE_MAX - 1));
    EXPECT_EQ(property_get("ro.unset", value, longValue.c_str()), PROPERTY_VALUE_MAX - 1);
}

TEST(PropertyGet, AnArmedFailureBehavesAsUnset) {
    char value[PROPERTY_VALUE_MAX];
    devprofile::set("prop.ro.build.PDA", "G960FXXU");
    devprofile::failNext("property_get");
    EXPECT_EQ(property_get("ro.build.PDA", value, "x"), 1);
    EXPECT_STREQ(value, "x");
    EXPECT_EQ(property_get("ro.build.PDA", value, "x"), 8);
}

namespace {
struct stat statOf(const char* path) {
    struct stat st {};
    lstat(path, &st);
    return st;
}
}  // namespace

TEST(FsPrepareDir, CreatesWithExactModeAndOwnerDespiteTheUmask) {
    mode_t old = umask(077);
    EXPECT_EQ(fs_prepare_dir("/data/media/150", 0775, 1023, 1023), 0);
    umask(old);
    struct stat st = statOf("/data/media/150");
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(st.st_mode & 07777, 0775u);
    EXPECT_EQ(st.st_uid, 1023u);
    EXPECT_EQ(st.st_gid, 1023u);
}

TEST(FsPrepareDir, FixesModeAndOwnerOfAnExistingDirectory) {
    ASSERT_EQ(mkdir("/mnt/media_rw/Private", 0777), 0);
    ASSERT_EQ(chmod("/mnt/media_rw/Private", 02777), 0);
    ASSERT_EQ(open("/mnt/media_rw/Private/keep", O_CREAT | O_WRONLY | O_CLOEXEC, 0600) >= 0, true);
    EXPECT_EQ(fs_prepare_dir("/mnt/media_rw/Private", 0750, 1000, 1000), 0);
    struct stat st = statOf("/mnt/media_rw/Private");
    EXPECT_EQ(st.st_mode & 07777, 0750u);
    EXPECT_EQ(st.st_uid, 1000u);
    EXPECT_EQ(st.st_gid, 1000u);
    EXPECT_EQ(access("/mnt/media_rw/Private/keep", F_OK), 0);  // contents untouched
    // Already right: nothing to do, still success.
    EXPECT_EQ(fs_prepare_dir("/mnt/media_rw/Private", 0750, 1000, 1000), 0);
}

TEST(FsPrepareDir, RefusesWhatIsNotADirectory) {
    int fd = open("/data/local/tmp/file", O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0);
    close(fd);
    errno = 0;
    EXPECT_EQ(fs_prepare_dir("/data/local/tmp/file", 0755, 0, 0), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(statOf("/data/local/tmp/file").st_mode & 07777, 0644u);

    ASSERT_EQ(symlink("/data/media", "/data/local/tmp/link"), 0);
    EXPECT_EQ(fs_prepare_dir("/data/local/tmp/link", 0700, 0, 0), -1);
    EXPECT_EQ(statOf("/data/media").st_mode & 07777, 0770u);  // the target is not touched

    errno = 0;
    EXPECT_EQ(fs_prepare_dir("/data/local/tmp/missing/child", 0755, 0, 0), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(FsPrepareDir, AnArmedFailureCreatesNothing) {
    devprofile::failNext("fs_prepare_dir");
    EXPECT_EQ(fs_prepare_dir("/storage/emulated/150", 0755, 0, 0), -1);
    EXPECT_NE(access("/storage/emulated/150", F_OK), 0);
    EXPECT_EQ(fs_prepare_dir("/storage/emulated/150", 0755, 0, 0), 0);
}
