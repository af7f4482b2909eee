// Where a key lives: the store directory of a version and the key file's
// encrypted name under user 0's folder.
#include <string.h>
#include <unistd.h>

#include <cstdio>

#include <string>

#include "keystore/Quarn3Helper.h"

namespace {

const char kQuarn3Dir[] = "/data/misc/quarn_keystore/";
const char kQuarn4Dir[] = "/data/misc/fips_quarn_keystore/";
constexpr size_t kNameBufferSize = 4096;
constexpr size_t kKeyPathSize = 1024;
// Arguments the store expects for a key file name.
constexpr int kEncryptNameFlags = 4;
const char kKeyStoreTag[] = "KS";

}  // namespace

int Quarn3Helper::getQ3KSPath(int version, char* dst, size_t size) {
    const char* dir = version == 3 ? kQuarn3Dir : version == 4 ? kQuarn4Dir : nullptr;
    if (!dir || !dst || size < strlen(dir) + 1) return -1;
    memcpy(dst, dir, strlen(dir) + 1);
    return 0;
}

int Quarn3Helper::quarn_encrypt_filename(int uid, const char* name, char* out) {
    memset(out, 0, kNameBufferSize);
    // Only the first 4096 characters of the name take part.
    char plain[kNameBufferSize];
    snprintf(plain, sizeof(plain), "%s", name);
    char encrypted[kNameBufferSize] = {};
    int rc = TZ_KEYSTORE_encrypt_filename(uid, kEncryptNameFlags, kKeyStoreTag, strlen(kKeyStoreTag), plain,
                                          strlen(plain), encrypted);
    if (rc != 0) return -1;
    snprintf(out, kNameBufferSize, "%s", encrypted);
    return 0;
}

int Quarn3Helper::get_keyname(const char* keyName, int uid, const char* dir, char* dst, size_t size) {
    memset(dst, 0, size);
    char encrypted[kNameBufferSize];
    // Without an encrypted name the path would name the folder itself.
    if (quarn_encrypt_filename(uid, keyName, encrypted) != 0) return -1;
    // Cut at the buffer's end like any other path of the store.
    std::string path = std::string(dir) + "user_0/" + encrypted;
    snprintf(dst, size, "%s", path.c_str());
    return 0;
}

bool Quarn3Helper::isQuarn3KeyExist(int version, const char* keyName) {
    char dir[64];
    if (getQ3KSPath(version, dir, sizeof(dir)) != 0) return false;
    char path[kKeyPathSize];
    if (get_keyname(keyName, kQuarnSystemUid, dir, path, sizeof(path)) != 0) return false;
    return access(path, F_OK) == 0;
}
