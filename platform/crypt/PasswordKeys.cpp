// Password-wrapped key files (EDK) of the container encryption library.
#include <crypt/crypt.h>
#include <devprofile/DeviceProfile.h>
#include <errno.h>
#include <openssl/rand.h>
#include <unistd.h>

#include "PasswordKeyFile.h"
#include "base/Secret.h"

extern "C" int fips_create_edk(const char* path, const char* password) {
    if (devprofile::shouldFail("fips_create_edk")) return -1;
    pelk::SecretBuffer<pelkhost::kEdkKeySize> key;
    if (RAND_bytes(key.data(), key.size()) != 1) return -1;
    return pelkhost::edkWrite(path, password, key.data()) ? 0 : -1;
}

extern "C" int fips_verify_password(const char* path, const char* password) {
    if (devprofile::shouldFail("fips_verify_password")) return -1;
    pelk::SecretBuffer<pelkhost::kEdkKeySize> key;
    return pelkhost::edkOpen(path, password, key.data()) ? 0 : -1;
}

// The key stays the same; only the password that wraps it changes.
extern "C" int fips_change_password(const char* oldPassword, const char* newPassword, const char* path) {
    if (devprofile::shouldFail("fips_change_password")) return -1;
    pelk::SecretBuffer<pelkhost::kEdkKeySize> key;
    if (!pelkhost::edkOpen(path, oldPassword, key.data())) return -1;
    return pelkhost::edkWrite(path, newPassword, key.data()) ? 0 : -1;
}

extern "C" int fips_delete_edk(const char* path) {
    if (devprofile::shouldFail("fips_delete_edk")) return -1;
    if (!path) return -1;
    return unlink(path) == 0 ? 0 : -1;
}
