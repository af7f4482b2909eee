// The private-mode store driven over "ppm": mounted with a password that its
// first use fixes, re-keyed and taken down, for any caller, with the
// passwords kept out of the log whatever characters they hold.
#include <crypt/crypt.h>
#include <persona/persona.h>

#include "Daemon.h"
#include "devprofile/DeviceProfile.h"
#include "support/Files.h"

namespace {

using Lines = std::vector<std::string>;

const char kKeyFile[] = "/data/system/users/privatemode_edk_0";
const char kMediaLink[] = "/mnt/media_rw/Private";
const char* const kMountPoints[] = {"/data/privatemode", "/mnt/runtime/default/Private", "/mnt/runtime/read/Private",
                                    "/mnt/runtime/write/Private", kMediaLink};

int mountedCount() {
    int n = 0;
    for (const char* point : kMountPoints) n += isMountedPath(point) ? 1 : 0;
    return n;
}

class PrivateModeCommands : public e2e::DaemonTest {
protected:
    void prepareDevice() override { devprofile::set("time.scale", "0.001"); }
    // Sends lines to "ppm" as a caller that is not system_server.
    Lines ppm(const std::string& lines) { return e2e::pelkctl({"--socket", "ppm", "--caller", "self"}, lines).lines; }
    void expectNeverLogged(std::initializer_list<const char*> secrets) {
        for (const char* secret : secrets) EXPECT_FALSE(liblog_any_contains(secret)) << secret << " reached the log";
    }
};

TEST_F(PrivateModeCommands, TheFirstPasswordHoldsUntilItIsChanged) {
    EXPECT_EQ(Lines{"200 1 success"}, ppm("mount_privatemode 0 /storage/Private /mnt/Private first-pass\n"));
    EXPECT_EQ(0, fips_verify_password(kKeyFile, "first-pass"));
    EXPECT_EQ(5, mountedCount());
    EXPECT_EQ(1, liblog_count("\n\nCMD > mount_privatemode 0 /storage/Private /mnt/Private \n", "pelkd"));

    // Mounted already: any password is answered with success.
    EXPECT_EQ(Lines{"200 1 success"}, ppm("mount_privatemode 0 a b not-the-pass\n"));
    EXPECT_EQ(Lines{"200 1 success"}, ppm("unmount_privatemode 0 /storage/Private\n"));
    EXPECT_EQ(0, mountedCount());
    EXPECT_FALSE(testfs::exists(kMediaLink));
    EXPECT_EQ(1, liblog_count("\n\nCMD > unmount_privatemode 0 /storage/Private \n", "pelkd"));

    EXPECT_EQ(Lines{"281 1 failed"}, ppm("mount_privatemode 0 a b not-the-pass\n"));
    EXPECT_EQ(1, liblog_count("verify failed :: Error\n", "pelkd", ANDROID_LOG_ERROR));
    EXPECT_EQ(1, liblog_count("Mount ERROR [/data/privatemode]", "pelkd", ANDROID_LOG_ERROR));
    EXPECT_EQ(0, mountedCount());

    EXPECT_EQ((Lines{"281 1 failed", "200 2 success"}), ppm("privatemode_change_password 0 not-the-pass second-pass\n"
                                                            "privatemode_change_password 0 first-pass second-pass\n"));
    EXPECT_EQ(1, liblog_count("changePassword ERROR", "pelkd", ANDROID_LOG_ERROR));
    EXPECT_EQ(2, liblog_count("\n\nCMD > privatemode_change_password 0 \n", "pelkd"));
    EXPECT_EQ((Lines{"281 1 failed", "200 2 success"}),
              ppm("mount_privatemode 0 a b first-pass\nmount_privatemode 0 a b second-pass\n"));
    EXPECT_EQ(5, mountedCount());
    expectNeverLogged({"first-pass", "second-pass", "not-the-pass"});
}

TEST_F(PrivateModeCommands, ServedToAnyCallerAndUnknownOnTheContainerSocket) {
    EXPECT_EQ(
        Lines{"200 1 success"},
        e2e::pelkctl({"--socket", "ppm", "--caller", "other-name", "mount_privatemode", "0", "a", "b", "pw"}).lines);
    EXPECT_EQ(Lines{"200 1 success"},
              e2e::pelkctl({"--socket", "ppm", "privatemode_change_password", "0", "pw", "new"}).lines);
    for (const char* word :
         {"mount_privatemode 0 a b new", "unmount_privatemode 0 a", "privatemode_change_password 0 new x"})
        EXPECT_EQ(Lines{"500 1 Command not recognized"}, e2e::pelkctl({}, std::string(word) + "\n").lines) << word;
    EXPECT_EQ(0, fips_verify_password(kKeyFile, "new"));
    EXPECT_EQ(5, mountedCount());
}

TEST_F(PrivateModeCommands, WrongWordCountsAndOverlongPasswords) {
    EXPECT_EQ((Lines{"501 1 given argc [4] != expected [5]", "501 2 given argc [2] != expected [3]",
                     "501 3 given argc [5] != expected [4]"}),
              ppm("mount_privatemode 0 a b\nunmount_privatemode 0\nprivatemode_change_password 0 a b c\n"));
    EXPECT_FALSE(testfs::exists(kKeyFile));

    // A password is cut to its first 32 characters, the same way each time.
    const std::string forty = "0123456789abcdefghijklmnopqrstuvwxyzABCD";
    EXPECT_EQ(Lines{"200 1 success"}, ppm("mount_privatemode 0 a b " + forty + "\n"));
    EXPECT_EQ(0, fips_verify_password(kKeyFile, forty.substr(0, 32).c_str()));
    EXPECT_NE(0, fips_verify_password(kKeyFile, forty.c_str()));
    EXPECT_EQ((Lines{"200 1 success", "200 2 success"}),
              ppm("unmount_privatemode 0 a\nmount_privatemode 0 a b " + forty + "\n"));
    expectNeverLogged({"0123456789abcdefghijklmnopqrstuv"});
}

TEST_F(PrivateModeCommands, PasswordsWithBlanksAndQuotesAreTakenWhole) {
    EXPECT_EQ(Lines{"200 1 success"}, ppm("mount_privatemode 0 a b \"say \\\"hi\\\" now\"\n"));
    EXPECT_EQ(0, fips_verify_password(kKeyFile, "say \"hi\" now"));
    EXPECT_EQ((Lines{"200 1 success"}),
              ppm("privatemode_change_password 0 \"say \\\"hi\\\" now\" \"it's; a \\\\ b\"\n"));
    EXPECT_EQ(0, fips_verify_password(kKeyFile, "it's; a \\ b"));
    expectNeverLogged({"hi\\\" now", "say \"hi\"", "it's; a"});
}

}  // namespace
