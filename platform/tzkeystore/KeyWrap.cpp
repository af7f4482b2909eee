// Key files of the simulated trusted key store. A key file is
//
//   "PKS" | store version (3 or 4) | nonce 12 | sealed blob | tag 16
//
// sealed with AES-256-GCM under a key the store derives for its version.
// The header and the unwrap password are authenticated with it: a file of
// the other store version, of another user (another password) or with any
// byte changed does not unwrap.
#include <devprofile/DeviceProfile.h>
#include <openssl/rand.h>
#include <string.h>
#include <tzkeystore/tz_keystore.h>
#include <tzkeystore/tz_keystore_host.h>

#include <initializer_list>
#include <utility>
#include <vector>

#include "../crypt/Aead.h"
#include "StoreKeys.h"
#include "base/Secret.h"

namespace {

constexpr size_t kHeaderSize = 4;
constexpr size_t kOverhead = kHeaderSize + pelkhost::kAeadNonceSize + pelkhost::kAeadTagSize;
constexpr int kPasswordMax = 32;

bool storeKey(int version, unsigned char* key) {
    if (version == 3) return tzks::deriveStoreKey("pelk key store: wrap v3", key);
    if (version == 4) return tzks::deriveStoreKey("pelk key store: wrap v4", key);
    return false;
}

// Header then password: what the seal authenticates besides the blob.
std::vector<unsigned char> associatedData(int version, const char* password, int passwordLen) {
    size_t len = passwordLen > 0 ? static_cast<size_t>(passwordLen) : 0;
    std::vector<unsigned char> aad(4 + len);
    aad[0] = 'P';
    aad[1] = 'K';
    aad[2] = 'S';
    aad[3] = static_cast<unsigned char>(version);
    if (len) memcpy(aad.data() + 4, password, len);
    return aad;
}

int unwrap(int version, const char* password, int passwordLen, const unsigned char* wrapped, int wrappedLen,
           unsigned char* out, int* outLen) {
    if (outLen) *outLen = 0;
    if (!wrapped || !out || !outLen || wrappedLen < static_cast<int>(kOverhead)) return -1;
    if (passwordLen < 0 || passwordLen > kPasswordMax || (passwordLen && !password)) return -1;
    std::vector<unsigned char> aad = associatedData(version, password, passwordLen);
    if (memcmp(wrapped, aad.data(), kHeaderSize) != 0) return -1;

    pelk::SecretBuffer<tzks::kStoreKeySize> key;
    if (!storeKey(version, key.data())) return -1;
    size_t sealedLen = wrappedLen - kHeaderSize - pelkhost::kAeadNonceSize;
    // Opened into a buffer of our own: unauthenticated bytes never reach the caller.
    std::vector<unsigned char> plain(sealedLen);
    pelk::WipeOnExit wipePlain(plain.data(), plain.size());
    int len = pelkhost::aeadOpen(key.data(), wrapped + kHeaderSize, aad.data(), aad.size(),
                                 wrapped + kHeaderSize + pelkhost::kAeadNonceSize, sealedLen, plain.data());
    if (len <= 0) return -1;
    memcpy(out, plain.data(), len);
    *outLen = len;
    return 0;
}

}  // namespace

extern "C" int TZ_KEYSTORE_unwrap_key(const char* password, int passwordLen, const unsigned char* wrapped,
                                      int wrappedLen, unsigned char* out, int* outLen) {
    if (devprofile::shouldFail("TZ_KEYSTORE_unwrap_key")) {
        if (outLen) *outLen = 0;
        return -1;
    }
    return unwrap(3, password, passwordLen, wrapped, wrappedLen, out, outLen);
}

extern "C" int TZ_KEYSTORE_fips_unwrap_key(const char* password, int passwordLen, const unsigned char* wrapped,
                                           int wrappedLen, unsigned char* out, int* outLen) {
    if (devprofile::shouldFail("TZ_KEYSTORE_fips_unwrap_key")) {
        if (outLen) *outLen = 0;
        return -1;
    }
    return unwrap(4, password, passwordLen, wrapped, wrappedLen, out, outLen);
}

extern "C" int TZ_KEYSTORE_host_wrap(int version, const char* password, int passwordLen, const unsigned char* blob,
                                     int blobLen, unsigned char* out, int outSize) {
    if (!blob || blobLen <= 0 || !out || outSize < blobLen + static_cast<int>(kOverhead)) return -1;
    if (passwordLen < 0 || passwordLen > kPasswordMax || (passwordLen && !password)) return -1;
    pelk::SecretBuffer<tzks::kStoreKeySize> key;
    if (!storeKey(version, key.data())) return -1;
    std::vector<unsigned char> aad = associatedData(version, password, passwordLen);
    memcpy(out, aad.data(), kHeaderSize);
    if (RAND_bytes(out + kHeaderSize, pelkhost::kAeadNonceSize) != 1) return -1;
    int sealed = pelkhost::aeadSeal(key.data(), out + kHeaderSize, aad.data(), aad.size(), blob, blobLen,
                                    out + kHeaderSize + pelkhost::kAeadNonceSize);
    if (sealed < 0) return -1;
    return static_cast<int>(kHeaderSize + pelkhost::kAeadNonceSize) + sealed;
}

extern "C" int TZ_KEYSTORE_host_make_blob(const char* keyName, const unsigned char* key, int keyLen, unsigned char* out,
                                          int outSize) {
    static const char kTag[] = "KS";
    if (!keyName || !key || keyLen <= 0 || !out) return -1;
    size_t nameLen = strlen(keyName), tagLen = strlen(kTag);
    size_t total = 2 + nameLen + 2 + tagLen + 4 + static_cast<size_t>(keyLen);
    if (nameLen > 0xffff || outSize < 0 || total > static_cast<size_t>(outSize)) return -1;
    unsigned char* p = out;
    for (const auto& field : {std::make_pair(keyName, nameLen), std::make_pair(kTag, tagLen)}) {
        *p++ = field.second >> 8;
        *p++ = field.second & 0xff;
        memcpy(p, field.first, field.second);
        p += field.second;
    }
    *p++ = keyLen >> 24;
    *p++ = keyLen >> 16;
    *p++ = keyLen >> 8;
    *p++ = keyLen;
    memcpy(p, key, keyLen);
    return static_cast<int>(total);
}
