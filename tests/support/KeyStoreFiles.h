// Test helpers: key store files written as the device's key store writes
// them, and the check that no key or password bytes reach the log.
#pragma once

#include <gtest/gtest.h>
#include <log/log_records.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <tzkeystore/tz_keystore_host.h>

#include <fstream>
#include <string>
#include <vector>

#include "keystore/Quarn3Helper.h"

namespace keytest {

using Bytes = std::vector<unsigned char>;

inline Bytes randomBytes(size_t n) {
    Bytes b(n);
    RAND_bytes(b.data(), static_cast<int>(n));
    return b;
}

inline std::string keyFilePath(int version, const char* keyName) {
    char dir[64], path[1024];
    Quarn3Helper::getQ3KSPath(version, dir, sizeof(dir));
    Quarn3Helper::get_keyname(keyName, kQuarnSystemUid, dir, path, sizeof(path));
    return path;
}

inline void writeBytes(const std::string& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

inline Bytes makeBlob(const char* keyName, const Bytes& key) {
    Bytes blob(key.size() + 300);
    int n = TZ_KEYSTORE_host_make_blob(keyName, key.data(), static_cast<int>(key.size()), blob.data(),
                                       static_cast<int>(blob.size()));
    blob.resize(n > 0 ? n : 0);
    return blob;
}

// Wraps `blob` for store `version` under `password` as the key file of `keyName`.
inline void writeWrappedBlob(int version, const char* keyName, const std::string& password, const Bytes& blob) {
    char dir[64];
    ASSERT_EQ(Quarn3Helper::getQ3KSPath(version, dir, sizeof(dir)), 0);
    mkdir((std::string(dir) + "user_0").c_str(), 0700);
    Bytes wrapped(blob.size() + 64);
    int n = TZ_KEYSTORE_host_wrap(version, password.c_str(), static_cast<int>(password.size()), blob.data(),
                                  static_cast<int>(blob.size()), wrapped.data(), static_cast<int>(wrapped.size()));
    ASSERT_GT(n, 0);
    wrapped.resize(n);
    writeBytes(keyFilePath(version, keyName), wrapped);
}

// As the platform provisions a user's key: the password is the user id's text.
inline void provisionKey(int user, int version, const char* keyName, const Bytes& key) {
    writeWrappedBlob(version, keyName, std::to_string(user), makeBlob(keyName, key));
}

inline std::string hex(const Bytes& b, const char* digits = "0123456789abcdef") {
    std::string s;
    for (unsigned char c : b) s += {digits[c >> 4], digits[c & 15]};
    return s;
}

inline std::string base64(const Bytes& b) {
    std::string out(4 * ((b.size() + 2) / 3) + 1, '\0');
    out.resize(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]), b.data(), static_cast<int>(b.size())));
    return out;
}

// No log record may hold the key (raw, hex either case, base64 whole or its
// first 16 characters) nor any of the passwords.
inline void expectLogFreeOf(const Bytes& key, const std::vector<std::string>& passwords = {}) {
    std::vector<std::string> needles = {std::string(key.begin(), key.end()), hex(key), hex(key, "0123456789ABCDEF"),
                                        base64(key), base64(key).substr(0, 16)};
    needles.insert(needles.end(), passwords.begin(), passwords.end());
    for (const auto& record : liblog_records()) {
        for (const auto& needle : needles) {
            if (needle.empty()) continue;
            EXPECT_EQ(record.text.find(needle), std::string::npos) << "secret in log line: " << record.text;
        }
    }
}

}  // namespace keytest
