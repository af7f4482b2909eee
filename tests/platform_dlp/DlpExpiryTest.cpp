// Expiry times stored on DLP files, the lifetime and audit state from the
// device profile, and the "file missing" answer the daemon turns into a
// pending inode.
#include <dlp/dlp.h>
#include <dlp/dlp_records.h>
#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "devprofile/DeviceProfile.h"
#include "support/Files.h"

TEST(DlpPolicy, LifetimeAndAuditStateComeFromTheProfile) {
    EXPECT_EQ(get_expiryAfter_time(10), 86400);
    EXPECT_EQ(getDLPAuditLogState(), 0);

    devprofile::set("dlp.expiry_after", "600");
    devprofile::set("dlp.expiry_after.11", "30");
    devprofile::set("dlp.audit_state", "18");
    EXPECT_EQ(get_expiryAfter_time(10), 600);
    EXPECT_EQ(get_expiryAfter_time(11), 30);
    EXPECT_EQ(getDLPAuditLogState(), 18);

    devprofile::set("dlp.expiry_after", "99999999999");  // beyond an int: the largest one
    EXPECT_EQ(get_expiryAfter_time(10), 2147483647);
}

TEST(DlpExpiry, StoredOnTheFileAndReadBackExactly) {
    ASSERT_TRUE(testfs::writeFile("/data/user/10/doc.txt", "x"));
    char path[] = "/data/user/10/doc.txt";
    EXPECT_EQ(dlp_file_expiry(path), -1);
    EXPECT_EQ(set_dlp_file_expiry_time(path, 1700000123L), 0);
    EXPECT_EQ(dlp_file_expiry(path), 1700000123L);
    EXPECT_EQ(set_dlp_file_expiry_time(path, -5L), 0);
    EXPECT_EQ(dlp_file_expiry(path), -5L);

    // A renamed file keeps its expiry: it lives on the file, not on the name.
    ASSERT_EQ(rename(path, "/data/user/10/moved.txt"), 0);
    EXPECT_EQ(dlp_file_expiry("/data/user/10/moved.txt"), -5L);
}

TEST(DlpExpiry, MissingFileAnswersErrnoOrTwo) {
    char missing[] = "/data/user/10/gone.txt";
    errno = 0;
    EXPECT_NE(set_dlp_file_expiry_time(missing, 1L), 0);
    EXPECT_EQ(errno, ENOENT);

    EXPECT_EQ(setExpiryforFile(812, missing, 10), 2);
    EXPECT_FALSE(testfs::exists(missing));

    ASSERT_TRUE(testfs::writeFile("/data/user/10/doc.txt", "x"));
    char path[] = "/data/user/10/doc.txt";
    devprofile::failNext("set_dlp_file_expiry_time");
    errno = 0;
    EXPECT_NE(set_dlp_file_expiry_time(path, 1L), 0);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(dlp_file_expiry(path), -1);
}

TEST(DlpExpiry, RestrictedFileExpiresAfterItsUsersLifetime) {
    devprofile::set("dlp.expiry_after.12", "3600");
    ASSERT_TRUE(testfs::writeFile("/data/user/12/secret.txt", "x"));
    char path[] = "/data/user/12/secret.txt";
    long before = time(nullptr);
    EXPECT_EQ(setExpiryforFile(900, path, 12), 0);
    long after = time(nullptr);
    long expiry = dlp_file_expiry(path);
    EXPECT_GE(expiry, before + 3600);
    EXPECT_LE(expiry, after + 3600);

    auto calls = dlp_calls("setExpiryforFile");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].pid, 900);
    EXPECT_EQ(calls[0].userId, 12);
    EXPECT_EQ(calls[0].path, path);
    EXPECT_EQ(calls[0].value, expiry);
    EXPECT_EQ(calls[0].result, 0);
}
