#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <crypt/crypt.h>
#include <persona/persona.h>

#include "devprofile/DeviceProfile.h"

TEST(EncryptionMode, FollowsTheProfile) {
    EXPECT_EQ(isFBESupported(), 1);  // the device default
    EXPECT_EQ(isOdeInProgress(), 0);
    devprofile::set("fbe", "0");
    devprofile::set("ode", "1");
    EXPECT_EQ(isFBESupported(), 0);
    EXPECT_EQ(isOdeInProgress(), 1);
    devprofile::failNext("isOdeInProgress");
    EXPECT_EQ(isOdeInProgress(), 0);
    EXPECT_EQ(isOdeInProgress(), 1);
    devprofile::set("fbe", "1");
    devprofile::failNext("isFBESupported", 2);
    EXPECT_EQ(isFBESupported(), 0);
    EXPECT_EQ(isFBESupported(), 0);
    EXPECT_EQ(isFBESupported(), 1);
}

TEST(Personas, KindsAndScanBound) {
    devprofile::set("user.150", "zanth,legacy");
    devprofile::set("user.10", "zanth,cl");
    devprofile::set("user.151", "zanth,strond");
    int ids[2] = {-1, -1};
    EXPECT_EQ(scanZanthPersonas(ids, 2), 2);
    EXPECT_EQ(ids[0], 10);
    EXPECT_EQ(ids[1], 150);
    EXPECT_TRUE(isZanthUser(151));
    EXPECT_FALSE(isZanthUser(0));
    EXPECT_TRUE(isCLContainer(10));
    EXPECT_FALSE(isCLContainer(150));
    EXPECT_TRUE(isLegacyEncryption(150));
    EXPECT_FALSE(isLegacyEncryption(10));
    EXPECT_TRUE(isStrond(151));
    devprofile::failNext("scanZanthPersonas");
    EXPECT_LT(scanZanthPersonas(ids, 2), 1);
}

TEST(Personas, AUserAddedByAnotherProcessIsSeen) {
    int none[4];
    EXPECT_EQ(scanZanthPersonas(none, 4), 0);
    pid_t child = fork();
    if (child == 0) _exit(devprofile::set("user.152", "zanth") ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(isZanthUser(152));
}

TEST(MountedPath, ExactMountPointsOfThisNamespace) {
    ASSERT_EQ(mkdir("/data/x", 0755), 0);
    ASSERT_EQ(mkdir("/data/with blank", 0755), 0);
    ASSERT_EQ(mkdir("/data/back\\slash", 0755), 0);
    EXPECT_FALSE(isMountedPath("/data/x"));
    ASSERT_EQ(mount("t", "/data/x", "tmpfs", 0, nullptr), 0);
    ASSERT_EQ(mount("t", "/data/with blank", "tmpfs", 0, nullptr), 0);
    ASSERT_EQ(mount("t", "/data/back\\slash", "tmpfs", 0, nullptr), 0);
    ASSERT_EQ(mkdir("/data/x/sub", 0755), 0);
    EXPECT_TRUE(isMountedPath("/data/x"));
    EXPECT_TRUE(isMountedPath("/data/with blank"));
    EXPECT_FALSE(isMountedPath("/data/with\\040blank"));
    EXPECT_TRUE(isMountedPath("/data/back\\slash"));
    EXPECT_FALSE(isMountedPath("/data/x/"));
    EXPECT_FALSE(isMountedPath("/data/x/sub"));
    EXPECT_FALSE(isMountedPath("/data"));
    EXPECT_FALSE(isMountedPath(""));
    EXPECT_FALSE(isMountedPath(nullptr));
    devprofile::failNext("isMountedPath");
    EXPECT_FALSE(isMountedPath("/data/x"));
    ASSERT_EQ(umount("/data/x"), 0);
    EXPECT_FALSE(isMountedPath("/data/x"));
}
