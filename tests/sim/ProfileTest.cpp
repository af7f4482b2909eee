#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "devprofile/DeviceProfile.h"

using Clock = std::chrono::steady_clock;

TEST(Profile, ValuesCrossProcessesBothWays) {
    ASSERT_TRUE(devprofile::set("prop.ro.build.PDA", "X100"));
    pid_t child = fork();
    if (child == 0) {
        bool seen = devprofile::get("prop.ro.build.PDA") == "X100";
        bool wrote = devprofile::set("user.150", "zanth,cl");
        _exit(seen && wrote ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    // The child's write is seen here at once, and did not lose ours.
    EXPECT_TRUE(devprofile::isContainerUser(150));
    EXPECT_TRUE(devprofile::userHasKind(150, "cl"));
    EXPECT_FALSE(devprofile::userHasKind(150, "legacy"));
    EXPECT_EQ(devprofile::get("prop.ro.build.PDA"), "X100");
}

TEST(Profile, ContainerUsersAscendingAndErasable) {
    devprofile::set("user.151", "zanth");
    devprofile::set("user.10", "zanth,legacy");
    devprofile::set("user.150", "zanth");
    EXPECT_EQ(devprofile::containerUsers(), (std::vector<int>{10, 150, 151}));
    devprofile::erase("user.150");
    EXPECT_EQ(devprofile::containerUsers(), (std::vector<int>{10, 151}));
}

TEST(Profile, ArmedFailuresAreConsumedOneCallAtATime) {
    EXPECT_FALSE(devprofile::shouldFail("property_get"));
    ASSERT_TRUE(devprofile::failNext("property_get", 2));
    EXPECT_FALSE(devprofile::shouldFail("fs_prepare_dir"));
    EXPECT_TRUE(devprofile::shouldFail("property_get"));
    EXPECT_TRUE(devprofile::shouldFail("property_get"));
    EXPECT_FALSE(devprofile::shouldFail("property_get"));
    EXPECT_EQ(devprofile::get("fail.property_get"), "");
}

TEST(Profile, ConcurrentWritersLoseNothing) {
    const int kChildren = 8;
    for (int i = 0; i < kChildren; ++i) {
        if (fork() == 0) {
            for (int j = 0; j < 10; ++j) devprofile::set("k." + std::to_string(i) + "." + std::to_string(j), "v");
            _exit(0);
        }
    }
    for (int i = 0; i < kChildren; ++i) wait(nullptr);
    int keys = 0;
    for (const auto& kv : devprofile::snapshot())
        if (kv.first.compare(0, 2, "k.") == 0) ++keys;
    EXPECT_EQ(keys, kChildren * 10);
}

TEST(Profile, TimeScaleShrinksTheEngineSleeps) {
    ASSERT_TRUE(devprofile::set("time.scale", "0.001"));
    auto start = Clock::now();
    sleep(30);            // 30 ms at this scale
    usleep(5 * 1000000);  // 5 ms
    auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    EXPECT_GE(took, 35);
    EXPECT_LT(took, 2000);
    devprofile::set("time.scale", "garbage");
    EXPECT_EQ(devprofile::timeScale(), 1.0);
}

// Benchmarks report what the sleeps would cost unscaled: the count is of the
// durations asked for, and includes the sleeps of children forked after the
// first look at it.
TEST(Profile, RequestedSleepIsCountedUnscaledAcrossForks) {
    ASSERT_TRUE(devprofile::set("time.scale", "0.0001"));
    unsigned long long before = devprofile::requestedSleepMicros();
    sleep(2);
    usleep(300000);
    pid_t child = fork();
    if (child == 0) {
        usleep(700000);
        _exit(0);
    }
    ASSERT_GT(child, 0);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(devprofile::requestedSleepMicros() - before, 3000000u);
}

// Readers trust their copy while the shared change count stands still; a
// process that wiped the device's files starts over from the new ones.
TEST(Profile, AWipeByThisProcessIsReadAfresh) {
    ASSERT_TRUE(devprofile::set("prop.ro.build.PDA", "OLD"));
    ASSERT_EQ(devprofile::get("prop.ro.build.PDA"), "OLD");
    ASSERT_EQ(unlink(devprofile::path().c_str()), 0);
    ASSERT_EQ(unlink((devprofile::path() + ".changes").c_str()), 0);
    devprofile::forgetCachedCopy();
    EXPECT_EQ(devprofile::get("prop.ro.build.PDA"), "");
    ASSERT_TRUE(devprofile::set("prop.ro.build.PDA", "NEW"));
    EXPECT_EQ(devprofile::get("prop.ro.build.PDA"), "NEW");
}
