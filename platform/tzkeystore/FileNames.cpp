// The store's readiness and its file-name encryption: a key file's name is
// an HMAC of everything that identifies the key, under a key only the store
// holds, so names are stable for a key yet reveal nothing about it.
#include <devprofile/DeviceProfile.h>
#include <openssl/hmac.h>
#include <stdio.h>
#include <tzkeystore/tz_keystore.h>

#include <string>

#include "StoreKeys.h"
#include "base/Secret.h"

namespace {
const char kNameLabel[] = "pelk key store: file names";
}

extern "C" int TZ_KEYSTORE_initialize(void) {
    if (devprofile::shouldFail("TZ_KEYSTORE_initialize")) return -1;
    pelk::SecretBuffer<tzks::kStoreKeySize> key;
    return tzks::loadDeviceKey(key.data()) ? 0 : -1;
}

extern "C" int TZ_KEYSTORE_encrypt_filename(int uid, int flags, const char* tag, int tagLen, const char* name,
                                            int nameLen, char* out) {
    if (devprofile::shouldFail("TZ_KEYSTORE_encrypt_filename")) return -1;
    if (!tag || !name || !out || tagLen < 0 || nameLen < 0) return -1;
    pelk::SecretBuffer<tzks::kStoreKeySize> key;
    if (!tzks::deriveStoreKey(kNameLabel, key.data())) return -1;

    // Length-prefixed fields, so no two argument lists give the same input.
    std::string input = std::to_string(uid) + ":" + std::to_string(flags) + ":" + std::to_string(tagLen) + ":" +
                        std::string(tag, tagLen) + ":" + std::to_string(nameLen) + ":" + std::string(name, nameLen);
    unsigned char mac[32];
    unsigned int macLen = 0;
    if (!HMAC(EVP_sha256(), key.data(), key.size(), reinterpret_cast<const unsigned char*>(input.data()), input.size(),
              mac, &macLen))
        return -1;
    for (unsigned i = 0; i < macLen; ++i) snprintf(out + 2 * i, 3, "%02x", mac[i]);
    return 0;
}
