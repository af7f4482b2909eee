// The manager's keys and passwords, over the simulated key store and the
// host container encryption library.
#include <devprofile/DeviceProfile.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "log/PelkLog.h"
#include "manager/Pelk.h"
#include "support/Files.h"
#include "support/KeyStoreFiles.h"

using keytest::Bytes;

namespace {

using testfs::lines;
using testfs::readFile;
using testfs::writeFile;

const int kUser = 150;
const char kEdek[] = "/data/system/users/150/zanth_edk_de_150";
const char kEdk[] = "/data/system/users/zanth_edk_150";

class PelkKeys : public testing::Test {
protected:
    void SetUp() override {
        liblog_clear();
        mkdir("/data/system/users/150", 0700);
        resetOutput();
    }
    // Whatever happened, no key or password reached the log.
    void TearDown() override {
        for (const auto& key : secrets_) keytest::expectLogFreeOf(key, passwords_);
    }
    char* out() { return reinterpret_cast<char*>(out_); }
    void resetOutput() {
        memset(out_, 0xAA, sizeof(out_));
        flag_ = false;
    }
    void provisionCeKey(size_t size = 32) {
        secrets_.push_back(keytest::randomBytes(size));
        keytest::provisionKey(kUser, 4, "ecryptfsKey150", secrets_.back());
    }
    Bytes deKey(bool create) {
        resetOutput();
        EXPECT_EQ(pelk_.getDEKeyFromEDEK(kUser, out(), create), 0);
        EXPECT_EQ(out_[32], 0);
        secrets_.emplace_back(out_, out_ + 32);
        return secrets_.back();
    }
    // A failure leaves the caller's buffer and flag as they were.
    void expectFailureUntouched(int rc) {
        EXPECT_EQ(rc, -1);
        for (unsigned char c : out_) ASSERT_EQ(c, 0xAA);
        EXPECT_FALSE(flag_);
        resetOutput();
    }
    int logged(const char* text, int priority, int buffer = LOG_ID_SYSTEM) {
        return liblog_count(text, "pelkd", priority, buffer);
    }

    Pelk pelk_{getpid()};
    unsigned char out_[40];
    bool flag_ = false;
    std::vector<Bytes> secrets_;
    std::vector<std::string> passwords_ = {"first secret pw", "second secret pw"};
};

}  // namespace

TEST_F(PelkKeys, FekekIsCutToThirtyTwoBytes) {
    expectFailureUntouched(pelk_.getFEKEK(kUser, out(), &flag_, 1));  // no key yet
    expectFailureUntouched(pelk_.getFEKEK(kUser, out(), &flag_, 7));  // no such key type
    provisionCeKey(64);
    ASSERT_EQ(pelk_.getFEKEK(kUser, out(), &flag_, 1), 0);
    EXPECT_TRUE(flag_);
    EXPECT_TRUE(std::equal(secrets_[0].begin(), secrets_[0].begin() + 32, out_));
    EXPECT_EQ(out_[32], 0);
    EXPECT_EQ(out_[33], 0xAA);  // nothing past the 33-byte buffer
}

TEST_F(PelkKeys, EdekRoundTripAndRecreation) {
    provisionCeKey();
    Bytes created = deKey(true);
    EXPECT_EQ(deKey(false), created);

    struct stat st;
    ASSERT_EQ(stat(kEdek, &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_EQ(st.st_uid, 1000u);
    EXPECT_EQ(st.st_gid, 1000u);
    std::string file = readFile(kEdek);
    ASSERT_EQ(file.size(), 53u);  // 5-byte length field, 48 bytes of cipher text
    EXPECT_EQ(file.substr(0, 5), std::string("48\0\0\0", 5));
    EXPECT_EQ(file.find(std::string(created.begin(), created.end())), std::string::npos);

    Bytes again = deKey(true);  // overwrites with a new key
    EXPECT_NE(again, created);
    EXPECT_EQ(deKey(false), again);
}

TEST_F(PelkKeys, UnreadableEdekFailsWithoutTouchingOutput) {
    provisionCeKey();
    deKey(true);
    resetOutput();
    std::string cipher = readFile(kEdek).substr(5);
    for (const std::string& bad :
         {std::string("0\0\0\0\0", 5) + cipher, std::string("abc\0\0", 5) + cipher, std::string("200\0\0", 5) + cipher,
          std::string("-48\0\0", 5) + cipher, std::string("48\0\0\0", 5) + cipher.substr(0, 20), std::string("48")}) {
        std::ofstream(kEdek, std::ios::binary | std::ios::trunc) << bad;
        expectFailureUntouched(pelk_.getDEKeyFromEDEK(kUser, out(), false));
    }
    deKey(true);
    resetOutput();
    provisionCeKey();  // another CE key: the EDEK no longer opens
    expectFailureUntouched(pelk_.getDEKeyFromEDEK(kUser, out(), false));
    EXPECT_EQ(logged("Prepare DE ERROR : Failed to decrypt fekek_de!!\n", ANDROID_LOG_ERROR, LOG_ID_MAIN), 1);
}

TEST_F(PelkKeys, DeKeyFailuresAreLoggedAndStamped) {
    PelkLog* daemonLog = PelkLog::Instance();
    daemonLog->setDaemonStatus(PelkLog::STATUS_PREMOUNT_START);
    expectFailureUntouched(pelk_.getDEKeyFromEDEK(kUser, out(), true));
    daemonLog->setDaemonStatus(PelkLog::STATUS_CLOSE);
    EXPECT_EQ(logged("Prepare DE ERROR : Failed to get fekek_ce!!\n", ANDROID_LOG_ERROR, LOG_ID_MAIN), 1);
    EXPECT_NE(readFile("/data/log/pelk_ongoing").find(" ERROR Prepare DE ERROR : Failed to get fekek_ce!!\n"),
              std::string::npos);

    provisionCeKey();
    expectFailureUntouched(pelk_.getDEKeyFromEDEK(kUser, out(), false));
    EXPECT_EQ(logged("Cannot open edkLen for read(No such file or directory)!\n", ANDROID_LOG_ERROR), 1);
    struct {
        const char* function;
        const char* line;
    } failures[] = {{"generate_random_key", "Prepare DE ERROR : Failed to create fekek_de!!\n"},
                    {"aes_256_cbc_encrypt", "Prepare DE ERROR : Failed to encrypt fekek_de!!\n"},
                    {"ssWrite", nullptr}};
    for (const auto& f : failures) {
        devprofile::failNext(f.function);
        expectFailureUntouched(pelk_.getDEKeyFromEDEK(kUser, out(), true));
        if (f.line) {
            EXPECT_EQ(logged(f.line, ANDROID_LOG_ERROR, LOG_ID_MAIN), 1) << f.function;
        }
        EXPECT_EQ(access(kEdek, F_OK), -1) << f.function;
    }
}

TEST_F(PelkKeys, PasswordLifecycle) {
    const char* first = passwords_[0].c_str();
    const char* second = passwords_[1].c_str();
    ASSERT_EQ(pelk_.createKey(kUser, first, 1), 0);
    EXPECT_EQ(access(kEdk, F_OK), 0);
    EXPECT_EQ(pelk_.verifyPassword(kUser, first), 0);
    EXPECT_EQ(pelk_.verifyPassword(kUser, second), -1);
    EXPECT_EQ(pelk_.verifyPassword(kUser, nullptr), -1);
    EXPECT_EQ(logged("Invalid", ANDROID_LOG_ERROR), 2);

    EXPECT_NE(pelk_.changePassword(kUser, second, first), 0);
    EXPECT_EQ(logged("update:: Error\n", ANDROID_LOG_ERROR), 1);
    EXPECT_EQ(pelk_.changePassword(kUser, first, second), 0);
    EXPECT_EQ(logged("update:: Success\n", ANDROID_LOG_ERROR), 1);
    EXPECT_EQ(pelk_.verifyPassword(kUser, second), 0);

    EXPECT_EQ(pelk_.removePassword(kUser), 0);
    EXPECT_EQ(access(kEdk, F_OK), -1);
    EXPECT_EQ(logged("Delete:: Success\n", ANDROID_LOG_DEBUG), 1);
}

TEST_F(PelkKeys, RemoveWithoutEdkNeverCallsTheLibrary) {
    devprofile::failNext("fips_delete_edk");
    EXPECT_EQ(pelk_.removePassword(kUser), 0);
    EXPECT_EQ(devprofile::get("fail.fips_delete_edk"), "1");  // still armed: not called
    ASSERT_EQ(pelk_.createKey(kUser, passwords_[0].c_str(), 1), 0);
    EXPECT_EQ(pelk_.removePassword(kUser), 0);  // the library fails; still 0
    EXPECT_EQ(logged("Delete:: Error\n", ANDROID_LOG_DEBUG), 1);
}

TEST_F(PelkKeys, DeEdkIsForTheSystemUserOnly) {
    ASSERT_EQ(pelk_.createKey(kUser, passwords_[0].c_str(), 10), 0);
    struct stat st;
    ASSERT_EQ(stat(kEdek, &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_EQ(st.st_uid, 1000u);
    EXPECT_EQ(access(kEdk, F_OK), -1);

    devprofile::failNext("fips_create_edk");
    EXPECT_EQ(pelk_.createKey(kUser, passwords_[0].c_str(), 1), -1);
    EXPECT_EQ(logged("create failed :: Error\n", ANDROID_LOG_ERROR), 1);
}
