#include <gtest/gtest.h>
#include <selinux/android.h>
#include <selinux/restorecon_records.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "devprofile/DeviceProfile.h"

TEST(Restorecon, CallsOfAnotherProcessAreRecordedInOrder) {
    ASSERT_EQ(mkdir("/data/media/150", 0770), 0);
    ASSERT_EQ(mkdir("/data/media/150/odd\nname", 0770), 0);
    pid_t child = fork();
    if (child == 0) {
        int a = selinux_android_restorecon_internal("/data/media/150", 150, 0x90);
        int b =
            selinux_android_restorecon_internal("/data/media/150/odd\nname", 150, SELINUX_ANDROID_RESTORECON_RECURSE);
        _exit(a == 0 && b == 0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

    auto calls = restorecon_calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].path, "/data/media/150");
    EXPECT_EQ(calls[0].userId, 150);
    EXPECT_EQ(calls[0].flags, 0x90u);
    EXPECT_EQ(calls[0].result, 0);
    EXPECT_EQ(calls[1].path, "/data/media/150/odd\nname");
    EXPECT_EQ(calls[1].flags, static_cast<unsigned>(SELINUX_ANDROID_RESTORECON_RECURSE));
    EXPECT_EQ(restorecon_count("/data/media/150", 150, 0x90), 1);
    EXPECT_EQ(restorecon_count("/data/media/150", 151), 0);

    restorecon_clear();
    EXPECT_TRUE(restorecon_calls().empty());
}

TEST(Restorecon, ArmedFailureAndMissingPathAnswerMinusOne) {
    devprofile::failNext("selinux_android_restorecon_internal");
    EXPECT_EQ(selinux_android_restorecon_internal("/data/media", 0, 0x90), -1);
    errno = 0;
    EXPECT_EQ(selinux_android_restorecon_internal("/data/media/none", 0, 0x90), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(selinux_android_restorecon_internal("/data/media", 0, 0x90), 0);

    auto calls = restorecon_calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].result, -1);
    EXPECT_EQ(calls[1].result, -1);
    EXPECT_EQ(calls[2].result, 0);
    EXPECT_EQ(restorecon_count("/data/media"), 1);  // only the call that answered 0
}
