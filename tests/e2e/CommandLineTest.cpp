// What system_server sees for the words it sends, and what the daemon logs
// about them, over the real "pelk" socket.
#include <sys/stat.h>

#include <devprofile/DeviceProfile.h>
#include <persona/persona.h>

#include "Daemon.h"

namespace {

using e2e::pelkctl;

class CommandLine : public e2e::DaemonTest {};

int countLogged(const std::string& text, int priority) { return liblog_count(text, "pelkd", priority, LOG_ID_SYSTEM); }

TEST_F(CommandLine, WrongWordCountsQuoteBothCounts) {
    // One line too short (or too long) for every command that counts its
    // words; the others do not care and are left out.
    struct Case {
        const char* line;
        const char* reply;
    } cases[] = {
        {"mount 10 key 1", "given argc [4] != expected [5]"},
        {"unmount 10", "given argc [2] != expected [3]"},
        {"is_mounted", "given argc [1] != expected [2]"},
        {"change_password 10 old", "given argc [3] != expected [4]"},
        {"verify_password 10", "given argc [2] != expected [3]"},
        {"create_partition 10", "given argc [2] != expected [3]"},
        {"remove_partition 10", "given argc [2] != expected [3]"},
        {"scan_dir /data", "given argc [2] != expected [3]"},
        {"copy whole /a 0 /b 0 0 0 0", "given argc [9] != expected [10]"},
        {"change_permission_migration /a 1 2", "given argc [4] != expected [5]"},
        {"is_file_exist /a", "given argc [2] != expected [3]"},
        {"get_file_info /a 0 extra", "given argc [4] != expected [3]"},
        {"delete_file /a", "given argc [2] != expected [3]"},
        {"sync_pkg_dir 0", "given argc [2] != expected [3]"},
        {"premount now", "given argc [2] != expected [1]"},
        {"handle_enc_pkg 10 calculate_pkg_dir pkg 101 1", "given argc [6] != expected [8]"},
    };
    std::string input;
    for (const Case& c : cases) input += std::string(c.line) + "\n";
    auto r = pelkctl({}, input);
    ASSERT_EQ(sizeof(cases) / sizeof(cases[0]), r.lines.size());
    for (size_t i = 0; i < r.lines.size(); ++i) {
        EXPECT_EQ("501 " + std::to_string(i + 1) + " " + cases[i].reply, r.lines[i]) << cases[i].line;
    }
    EXPECT_EQ(1, countLogged("FATAL: different number of paramerter given [1] != [2]", ANDROID_LOG_ERROR));
    EXPECT_EQ(1, countLogged("FATAL: different number of paramerter given [4] != [3]", ANDROID_LOG_ERROR));
}

TEST_F(CommandLine, CommandsThatCannotSucceedNeverClaimSuccess) {
    auto r = pelkctl({},
                     "reset_partition\n"
                     "mount_legacy 1\n"
                     "unmount_legacy\n"
                     "sync_pkg_dir 0 10\n"
                     "delete_file /data 10\n");
    ASSERT_EQ(5u, r.lines.size());
    for (size_t i = 0; i < r.lines.size(); ++i) {
        EXPECT_EQ(0u, r.lines[i].rfind("281 " + std::to_string(i + 1) + " failed", 0)) << r.lines[i];
    }
    EXPECT_EQ("281 1 failed, resetPartition not supported at vold", r.lines[0]);
    EXPECT_EQ(1, r.status);
}

TEST_F(CommandLine, MigrationNeedsFourWordsAndSaysMoreThanFour) {
    auto r = pelkctl({}, "migration 10 data\nmigration 10 other name\n");
    ASSERT_EQ(2u, r.lines.size());
    EXPECT_EQ("501 1 given argc [3] != expected [0]", r.lines[0]);
    EXPECT_EQ(1, countLogged("FATAL: Migration Param num has to be more than 4 [argc:3]", ANDROID_LOG_ERROR));
    // Four words pass the count; the work behind it is not there.
    EXPECT_EQ("281 2 failed", r.lines[1]);
    EXPECT_EQ(0, countLogged("FATAL: Migration Param num has to be more than 4 [argc:4]", ANDROID_LOG_ERROR));
}

TEST_F(CommandLine, SecureFsSubCommands) {
    devprofile::set("user.10", "zanth");
    auto r = pelkctl({},
                     "secure_fs create_chamber 0\n"
                     "secure_fs create_chamber 0 10\n"
                     "secure_fs remove_chamber 0 11\n"
                     "secure_fs create_chamber 0 10 extra\n"
                     "secure_fs set_policy 1 10 and more\n");
    ASSERT_EQ(5u, r.lines.size());
    // Too short: the expected count it quotes is -1, and nothing is logged.
    EXPECT_EQ("501 1 given argc [3] != expected [-1]", r.lines[0]);
    EXPECT_EQ("281 2 create_chamber failed", r.lines[1]);
    EXPECT_EQ(1, countLogged("create_chamber not supported for Zanth container", ANDROID_LOG_ERROR));
    EXPECT_EQ("281 3 remove_chamber failed", r.lines[2]);
    EXPECT_EQ(1, countLogged("remove_chamber not supported currently.", ANDROID_LOG_ERROR));
    EXPECT_EQ("501 4 given argc [5] != expected [4]", r.lines[3]);
    EXPECT_EQ(1, countLogged("FATAL: different number of paramerter given [5] != [4]", ANDROID_LOG_ERROR));
    EXPECT_EQ("200 5 set_policy success", r.lines[4]);
    EXPECT_EQ(1, countLogged("FATAL: different number of paramerter given [5] != [4]", ANDROID_LOG_ERROR))
        << "a short secure_fs line must log no count error";
}

TEST_F(CommandLine, GetFileInfoReportsTheLinkItselfAndHidesTheCause) {
    ASSERT_EQ(0, mkdir("/data/local/tmp/info", 0755));
    FILE* f = fopen("/data/local/tmp/info/file", "w");
    ASSERT_NE(nullptr, f);
    fputs("twelve bytes", f);
    fclose(f);
    struct timespec times[2] = {{1500000000, 0}, {1500000000, 0}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, "/data/local/tmp/info/file", times, 0));
    ASSERT_EQ(0, symlink("/nowhere", "/data/local/tmp/info/dangling"));

    auto r = pelkctl({},
                     "get_file_info /data/local/tmp/info/file 10\n"
                     "get_file_info /data/local/tmp/info/dangling 10\n"
                     "get_file_info /data/local/tmp/info/missing 10\n");
    ASSERT_EQ(3u, r.lines.size());
    EXPECT_EQ("200 1 1500000000 12", r.lines[0]);
    EXPECT_EQ(0u, r.lines[1].rfind("200 2 ", 0)) << "a dangling link has its own size and time";
    // The reply always quotes error number 1; the log holds the real cause.
    EXPECT_EQ(std::string("281 3 failed -1 ") + strerror(1), r.lines[2]);
    EXPECT_EQ(1, countLogged("getFileInfoCmd :: Failed to lstat(/data/local/tmp/info/missing) : " +
                                 std::string(strerror(ENOENT)),
                             ANDROID_LOG_ERROR));
    EXPECT_EQ(1, countLogged("s.st_mtime = 1500000000", ANDROID_LOG_INFO));
}

TEST_F(CommandLine, IsFileExistAnswersByStat) {
    auto r = pelkctl({}, "is_file_exist /data 10\nis_file_exist /data/none 10\n");
    ASSERT_EQ(2u, r.lines.size());
    EXPECT_EQ("200 1 success", r.lines[0]);
    EXPECT_EQ(std::string("281 2 failed -1 ") + strerror(1), r.lines[1]);
    EXPECT_EQ(1, countLogged("isFileExist ERROR [mFilePath=/data/none mContainerId=10]", ANDROID_LOG_ERROR));
}

TEST_F(CommandLine, HugeWordsAreLeftOutOfTheLogButReachTheCommand) {
    std::string huge(4090, 's');
    std::string big(3000, 'b');
    auto r = pelkctl({}, "secure_fs " + huge + " 1 10\n" + "secure_fs sub " + big + " " + big + " 10\n");
    ASSERT_EQ(2u, r.lines.size());
    EXPECT_EQ("200 1 " + huge + " success", r.lines[0]);
    EXPECT_EQ("200 2 sub success", r.lines[1]);
    // A skipped word leaves no blank of its own; later words still fit.
    EXPECT_EQ(1, countLogged("\n\nCMD > secure_fs 1 10 \n", ANDROID_LOG_DEBUG));
    EXPECT_EQ(1, countLogged("\n\nCMD > secure_fs sub " + big + " 10 \n", ANDROID_LOG_DEBUG));
}

TEST_F(CommandLine, SecretsNeverReachTheLog) {
    const std::string key = "S3cr3tK3yW0rdThatMustNotLeak";
    const std::string oldPw = "0ldPassw0rdValue";
    const std::string newPw = "N3wPassw0rdValue";
    auto r = pelkctl({}, "mount 10 " + key + " 1 1\n" + "mount 10 " + key + "\n" + "change_password 10 " + oldPw + " " +
                             newPw + "\n" + "verify_password 10 " + oldPw + "\n" + "create_partition 10 " + key + "\n");
    ASSERT_EQ(5u, r.lines.size());
    auto ppm =
        pelkctl({"--socket", "ppm", "--caller", "self"},
                "mount_privatemode 0 /a /b " + key + "\nprivatemode_change_password 0 " + oldPw + " " + newPw + "\n");
    ASSERT_EQ(2u, ppm.lines.size());
    for (const std::string& secret : {key, oldPw, newPw}) {
        EXPECT_FALSE(liblog_any_contains(secret)) << secret;
    }
    EXPECT_EQ(2, countLogged("\n\nCMD > mount 10 \n", ANDROID_LOG_DEBUG));
    EXPECT_EQ(1, countLogged("\n\nCMD > change_password 10 \n", ANDROID_LOG_DEBUG));
    EXPECT_EQ(1, countLogged("\n\nCMD > verify_password 10 \n", ANDROID_LOG_DEBUG));
    EXPECT_EQ(1, countLogged("\n\nCMD > create_partition \n", ANDROID_LOG_DEBUG));
    EXPECT_EQ(1, countLogged("\n\nCMD > mount_privatemode 0 /a /b \n", ANDROID_LOG_DEBUG));
    EXPECT_EQ(1, countLogged("\n\nCMD > privatemode_change_password 0 \n", ANDROID_LOG_DEBUG));
}

}  // namespace
