// A container's password over "pelk": verified and changed against the
// password-wrapped key file, and never written to the log.
#include <crypt/crypt.h>

#include "Daemon.h"

namespace {

using e2e::pelkctl;

const char* const kKeyFile = "/data/system/users/zanth_edk_10";

class ContainerPassword : public e2e::DaemonTest {
protected:
    void prepareDevice() override { ASSERT_EQ(0, fips_create_edk(kKeyFile, "first-pass")); }
};

TEST_F(ContainerPassword, VerifyAndChangeThroughTheSocket) {
    auto before = pelkctl({}, "verify_password 10 first-pass\nverify_password 10 wrong-pass\n");
    EXPECT_EQ((std::vector<std::string>{"200 1 success", "281 2 failed"}), before.lines);
    EXPECT_EQ(1, liblog_count("verifyPassword ERROR", "pelkd", ANDROID_LOG_ERROR));

    auto change = pelkctl({"change_password", "10", "first-pass", "second-pass"});
    EXPECT_EQ(std::vector<std::string>{"200 1 success"}, change.lines);
    auto after = pelkctl({}, "verify_password 10 second-pass\nverify_password 10 first-pass\n");
    EXPECT_EQ((std::vector<std::string>{"200 1 success", "281 2 failed"}), after.lines);

    // A wrong old password changes nothing.
    auto refused = pelkctl({"change_password", "10", "first-pass", "third-pass"});
    EXPECT_EQ(std::vector<std::string>{"281 1 failed"}, refused.lines);
    EXPECT_EQ(1, liblog_count("changePassword ERROR", "pelkd", ANDROID_LOG_ERROR));
    EXPECT_EQ(0, fips_verify_password(kKeyFile, "second-pass"));

    for (const char* secret : {"first-pass", "second-pass", "third-pass", "wrong-pass"})
        EXPECT_FALSE(liblog_any_contains(secret)) << secret << " reached the log";
}

TEST_F(ContainerPassword, AUserWithoutKeyFileFails) {
    auto r = pelkctl({"verify_password", "11", "first-pass"});
    EXPECT_EQ(std::vector<std::string>{"281 1 failed"}, r.lines);
}

}  // namespace
