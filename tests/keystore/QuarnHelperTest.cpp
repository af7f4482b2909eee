#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>

#include <fstream>
#include <iterator>

#include "keystore/QuarnHelper.h"
#include "support/KeyStoreFiles.h"

using keytest::Bytes;

namespace {

const char kTag[] = "pelkd.QuarnHelper";

class QuarnHelperTest : public testing::Test {
protected:
    void SetUp() override { liblog_clear(); }
    // Reads through the helper into a pre-filled buffer, so untouched bytes show.
    int readKey(int user, int type) {
        QuarnHelper helper(user, type);
        out_.assign(kQuarnKeyBufferSize, 0xAA);
        len_ = -7;
        return helper.getKeyFromQuarnKeyStore(out_.data(), &len_);
    }
    bool outStartsWith(const Bytes& key) { return std::equal(key.begin(), key.end(), out_.begin()); }
    Bytes out_;
    int len_ = 0;
};

}  // namespace

TEST_F(QuarnHelperTest, KeyNamesByType) {
    EXPECT_STREQ(QuarnHelper(150, kQuarnKeyCe).keyName, "ecryptfsKey150");
    EXPECT_STREQ(QuarnHelper(150, kQuarnKeyDe).keyName, "ecryptfsKeyDe150");
    EXPECT_EQ(liblog_count("Not defined FEKEK type!!"), 0);
    // Unknown types, and the secure-fs key on a device without one.
    for (int type : {5, kQuarnKeySecureFs}) {
        QuarnHelper helper(0, type);
        EXPECT_STREQ(helper.keyName, "");
        EXPECT_EQ(helper.quarnVersion, 99);
    }
    EXPECT_EQ(liblog_count("Not defined FEKEK type!!", kTag, ANDROID_LOG_ERROR), 2);

    std::ofstream("/data/system/users/secure_fs.xml") << "<secure_fs quarnVersion=\"4\" version=\"1\"/>";
    keytest::provisionKey(0, 3, "eCryptfsKeySecFS", keytest::randomBytes(32));
    QuarnHelper fs(0, kQuarnKeySecureFs);
    EXPECT_STREQ(fs.keyName, "eCryptfsKeySecFS");
    EXPECT_EQ(fs.quarnVersion, 3);
}

TEST_F(QuarnHelperTest, BothStoresPresentPicksVersionFour) {
    Bytes key3 = keytest::randomBytes(32), key4 = keytest::randomBytes(32);
    keytest::provisionKey(150, 3, "ecryptfsKey150", key3);
    keytest::provisionKey(150, 4, "ecryptfsKey150", key4);
    EXPECT_EQ(QuarnHelper(150, kQuarnKeyCe).quarnVersion, 4);
    EXPECT_EQ(readKey(150, kQuarnKeyCe), 4);
    ASSERT_EQ(len_, 33);  // the key and the zero after it
    EXPECT_TRUE(outStartsWith(key4));
    EXPECT_EQ(out_[32], 0);
    EXPECT_EQ(out_[33], 0xAA);
    EXPECT_EQ(liblog_count("Quarn3Helper: Selected Quarn Version = [4]", kTag, ANDROID_LOG_DEBUG), 1);
    EXPECT_EQ(liblog_count("QUARN_ACCESS: Parsed key len=32", kTag, ANDROID_LOG_DEBUG), 1);

    Bytes de = keytest::randomBytes(48);  // only in store 3, and longer
    keytest::provisionKey(150, 3, "ecryptfsKeyDe150", de);
    EXPECT_EQ(readKey(150, kQuarnKeyDe), 3);
    EXPECT_EQ(len_, 49);
    EXPECT_TRUE(outStartsWith(de));
    for (const Bytes& key : {key3, key4, de}) keytest::expectLogFreeOf(key);
}

TEST_F(QuarnHelperTest, NoKeyAnywhereFailsWithoutTouchingOutput) {
    QuarnHelper helper(152, kQuarnKeyCe);
    EXPECT_EQ(helper.quarnVersion, -1);
    EXPECT_FALSE(helper.isKeyExist());
    EXPECT_EQ(readKey(152, kQuarnKeyCe), -1);
    EXPECT_EQ(len_, -7);
    EXPECT_EQ(out_[0], 0xAA);
    EXPECT_EQ(liblog_count("Quarn3Helper: Error[-1]", kTag, ANDROID_LOG_ERROR), 1);
}

TEST_F(QuarnHelperTest, KeyFilesAreBoundToUserAndStoreVersion) {
    // User 153's key file wrapped under user 154's password.
    keytest::writeWrappedBlob(4, "ecryptfsKey153", "154",
                              keytest::makeBlob("ecryptfsKey153", keytest::randomBytes(32)));
    EXPECT_EQ(readKey(153, kQuarnKeyCe), -1);
    EXPECT_EQ(liblog_count("QUARN_ACCESS: Error fetching key, key_len = 0", kTag, ANDROID_LOG_ERROR), 1);
    EXPECT_EQ(out_[0], 0xAA);

    // A version 3 file copied into the version 4 store.
    keytest::provisionKey(155, 3, "ecryptfsKey155", keytest::randomBytes(32));
    std::ifstream in(keytest::keyFilePath(3, "ecryptfsKey155"), std::ios::binary);
    keytest::writeBytes(keytest::keyFilePath(4, "ecryptfsKey155"),
                        Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()));
    EXPECT_EQ(QuarnHelper(155, kQuarnKeyCe).quarnVersion, 4);
    EXPECT_EQ(readKey(155, kQuarnKeyCe), -1);
}
