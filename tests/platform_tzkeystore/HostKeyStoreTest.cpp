// The simulated trusted key store itself: its device key and its wrapping.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tzkeystore/tz_keystore.h>
#include <unistd.h>

#include "support/KeyStoreFiles.h"

TEST(HostKeyStore, DeviceKeyIsPrivateAndNeverReplaced) {
    ASSERT_EQ(TZ_KEYSTORE_initialize(), 0);
    struct stat st;
    ASSERT_EQ(stat("/sim/tz_device_key", &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_EQ(st.st_size, 32);
    // Damaged, it makes the store unusable rather than silently new.
    ASSERT_EQ(truncate("/sim/tz_device_key", 5), 0);
    EXPECT_EQ(TZ_KEYSTORE_initialize(), -1);
    ASSERT_EQ(stat("/sim/tz_device_key", &st), 0);
    EXPECT_EQ(st.st_size, 5);
}

TEST(HostKeyStore, UnwrapNeedsSameVersionPasswordAndBytes) {
    keytest::Bytes blob = keytest::randomBytes(40);
    unsigned char wrapped[1024], out[1024];
    int n = TZ_KEYSTORE_host_wrap(3, "150", 3, blob.data(), 40, wrapped, sizeof(wrapped));
    ASSERT_EQ(n, 72);
    int len = -1;
    ASSERT_EQ(TZ_KEYSTORE_unwrap_key("150", 3, wrapped, n, out, &len), 0);
    EXPECT_EQ(len, 40);
    EXPECT_TRUE(std::equal(blob.begin(), blob.end(), out));

    EXPECT_EQ(TZ_KEYSTORE_unwrap_key("151", 3, wrapped, n, out, &len), -1);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(TZ_KEYSTORE_fips_unwrap_key("150", 3, wrapped, n, out, &len), -1);
    EXPECT_EQ(TZ_KEYSTORE_unwrap_key("150", 3, wrapped, n - 1, out, &len), -1);
    EXPECT_EQ(TZ_KEYSTORE_host_wrap(3, "150", 3, blob.data(), 40, wrapped, 71), -1);  // no room
}
