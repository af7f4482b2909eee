#include <devprofile/DeviceProfile.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>

#include <fstream>

#include "support/KeyStoreFiles.h"

using keytest::Bytes;

namespace {

const char kTag[] = "pelkd.QuarnHelper";

class Quarn3Reader : public testing::Test {
protected:
    void SetUp() override { liblog_clear(); }
    int read(const char* keyName, const char* password) {
        out_.assign(kQuarnKeyBufferSize, 0xAA);
        len_ = -7;
        return Quarn3Helper::getKeyFromQ3KS("/data/misc/fips_quarn_keystore/", out_.data(), &len_, keyName, password,
                                            TZ_KEYSTORE_fips_unwrap_key);
    }
    void expectUntouched() {
        EXPECT_EQ(len_, -7);
        EXPECT_EQ(out_[0], 0xAA);
    }
    int logged(const std::string& text) { return liblog_count(text, kTag, ANDROID_LOG_ERROR); }
    Bytes out_;
    int len_ = 0;
};

}  // namespace

TEST_F(Quarn3Reader, PasswordOf32IsAcceptedAnd33Refused) {
    const std::string pw32(32, 'p'), pw33(33, 'p');
    Bytes key = keytest::randomBytes(32);
    keytest::writeWrappedBlob(4, "k32", pw32, keytest::makeBlob("k32", key));
    ASSERT_EQ(read("k32", pw32.c_str()), 0);
    EXPECT_EQ(len_, 33);
    EXPECT_TRUE(std::equal(key.begin(), key.end(), out_.begin()));

    EXPECT_EQ(read("k32", pw33.c_str()), -1);
    EXPECT_EQ(logged("QUARN_ACCESS: password is too long (33)"), 1);
    expectUntouched();

    keytest::writeWrappedBlob(4, "k0", "", keytest::makeBlob("k0", key));
    EXPECT_EQ(read("k0", nullptr), 0);  // no password: length 0
    keytest::expectLogFreeOf(key, {pw32});
}

TEST_F(Quarn3Reader, MissingStoreMissingFileAndEmptyFileAreToldApart) {
    devprofile::failNext("TZ_KEYSTORE_initialize");
    EXPECT_EQ(read("k", "1"), -1);
    EXPECT_EQ(logged("QUARN_ACCESS: QUARN is not valid."), 1);
    expectUntouched();

    std::string path = keytest::keyFilePath(4, "k");
    EXPECT_EQ(read("k", "1"), -1);
    EXPECT_EQ(logged("quarn3 opening file " + path + "\n"), 1);
    EXPECT_EQ(logged("QUARN_ACCESS: couldn't read keyfile: No such file or directory"), 1);
    expectUntouched();

    keytest::writeWrappedBlob(4, "other", "1", keytest::makeBlob("other", keytest::randomBytes(8)));  // makes user_0
    keytest::writeBytes(path, {});
    EXPECT_EQ(read("k", "1"), -1);
    EXPECT_EQ(logged("QUARN_ACCESS: Could only read from key file " + path), 1);
    expectUntouched();
}

TEST_F(Quarn3Reader, KeyFileIsCutAt1024Bytes) {
    // A record of exactly 1024 bytes, then junk: only a reader that stops at
    // 1024 bytes hands the store a record that authenticates.
    Bytes key = keytest::randomBytes(32);
    Bytes blob = keytest::makeBlob("k", key);
    blob.resize(1024 - 32, 0);
    keytest::writeWrappedBlob(4, "k", "1", blob);
    std::string path = keytest::keyFilePath(4, "k");
    ASSERT_EQ(std::ifstream(path, std::ios::ate | std::ios::binary).tellg(), 1024);
    std::ofstream(path, std::ios::app | std::ios::binary) << std::string(500, 'J');
    ASSERT_EQ(read("k", "1"), 0);
    EXPECT_EQ(len_, 33);
    EXPECT_TRUE(std::equal(key.begin(), key.end(), out_.begin()));
}

TEST_F(Quarn3Reader, DamagedRecordsAndBlobsFail) {
    Bytes key = keytest::randomBytes(32);
    keytest::writeWrappedBlob(4, "k", "1", keytest::makeBlob("k", key));
    {
        std::fstream f(keytest::keyFilePath(4, "k"), std::ios::in | std::ios::out | std::ios::binary);
        f.seekp(20);
        f.put('\x5a');
    }
    EXPECT_EQ(read("k", "1"), -1);
    EXPECT_EQ(logged("QUARN_ACCESS: Error fetching key, key_len = 0"), 1);

    // A key length that runs past the blob is refused, not followed.
    Bytes blob = keytest::makeBlob("k", key);
    blob[blob.size() - 36] = 0x7f;  // top byte of N
    keytest::writeWrappedBlob(4, "k", "1", blob);
    EXPECT_EQ(read("k", "1"), -1);
    EXPECT_EQ(logged("QUARN_ACCESS: Malformed key blob, key_len = " + std::to_string(0x7f000020)), 1);
    expectUntouched();
    keytest::expectLogFreeOf(key);
}

TEST(Quarn3Paths, DirectoriesAndEncryptedNames) {
    char dir[64];
    size_t need = strlen("/data/misc/fips_quarn_keystore/") + 1;
    EXPECT_EQ(Quarn3Helper::getQ3KSPath(4, dir, need), 0);
    EXPECT_STREQ(dir, "/data/misc/fips_quarn_keystore/");
    EXPECT_EQ(Quarn3Helper::getQ3KSPath(4, dir, need - 1), -1);
    EXPECT_EQ(Quarn3Helper::getQ3KSPath(5, dir, sizeof(dir)), -1);
    EXPECT_FALSE(Quarn3Helper::isQuarn3KeyExist(5, "ecryptfsKey150"));

    char a[4096], b[4096], c[4096], path[1024];
    ASSERT_EQ(Quarn3Helper::quarn_encrypt_filename(1000, "ecryptfsKey150", a), 0);
    ASSERT_EQ(Quarn3Helper::quarn_encrypt_filename(1000, "ecryptfsKey150", b), 0);
    ASSERT_EQ(Quarn3Helper::quarn_encrypt_filename(1000, "ecryptfsKey151", c), 0);
    EXPECT_STREQ(a, b);
    EXPECT_STRNE(a, c);
    EXPECT_EQ(Quarn3Helper::get_keyname("ecryptfsKey150", 1000, "/data/misc/quarn_keystore/", path, sizeof(path)), 0);
    EXPECT_EQ(std::string(path), std::string("/data/misc/quarn_keystore/user_0/") + a);
    // A name the store refuses leaves no path that would name the folder itself.
    devprofile::failNext("TZ_KEYSTORE_encrypt_filename");
    EXPECT_EQ(Quarn3Helper::get_keyname("ecryptfsKey150", 1000, "/data/misc/quarn_keystore/", path, sizeof(path)), -1);
    EXPECT_STREQ(path, "");
}

TEST(Quarn3Blob, ParseStaysInsideTheBlob) {
    const unsigned char blob[] = {0, 3, 'a', 'b', 'c', 0, 1, 'x', 0, 0, 0, 2, 7, 9};
    EXPECT_EQ(Quarn3Helper::getUTFPtr(blob, 0, sizeof(blob)), 5);
    EXPECT_EQ(Quarn3Helper::getUTFPtr(blob, 0, 1), 0);  // shorter than 2 bytes: nothing skipped
    unsigned char key[8] = {};
    int n = -1;
    EXPECT_EQ(Quarn3Helper::getEnc(key, blob, sizeof(blob), &n), 0);
    EXPECT_EQ(n, 2);
    EXPECT_EQ(key[1], 9);

    const unsigned char zero[] = {0, 0, 0, 0, 0, 0, 0, 0, 0xEE};
    const unsigned char past[] = {0, 0, 0, 0, 0, 0, 0, 3, 1, 2};
    const unsigned char wild[] = {0xff, 0xff, 1, 2, 3};
    key[0] = 0x55;
    EXPECT_EQ(Quarn3Helper::getEnc(key, zero, sizeof(zero), &n), -1);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(Quarn3Helper::getEnc(key, past, sizeof(past), &n), -1);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(Quarn3Helper::getEnc(key, wild, sizeof(wild), &n), -1);
    EXPECT_EQ(key[0], 0x55);
}
