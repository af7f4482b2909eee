// eCryptfs mounts of the host container encryption library.
//
// A mount is a real bind mount of the lower directory at the upper one (they
// may be the same directory): data written through upper lands in lower,
// byte for byte; the host does not encrypt it. The key still matters:
//
// - The first successful mount of a lower directory records a keyed check
//   value on it, in the extended attribute "user.pelk.ecryptfs_check":
//   format byte 1 | salt 16 | HMAC-SHA256 under the 32-byte key of
//   "libpelk eCryptfs key check" followed by the salt. Never the key.
// - A later mount whose key gives another value is refused (-1, errno
//   EKEYREJECTED) and nothing is mounted. The attribute goes with the
//   directory, so a lower directory removed and made anew takes a new key.
//
// The key is the 32 bytes at `key` (the manager's 33-byte key buffers). The
// password form unwraps the user's key file with the password, "/data/
// system/users/privatemode_edk_<user>" for the private-mode type 'g' and
// "/data/system/users/zanth_edk_<user>" for every other type, and then
// mounts with the unwrapped key; a wrong password is refused like a wrong
// key. The mount is registered with the kernel edition, so the device's
// mount tables show it as eCryptfs with "userid=<user>" and "partition_id=
// <mode>" (platform/kernel/EcryptfsMountTable.cpp).
//
// Every call is recorded for tests (crypt/ecryptfs_records.h).
#include <crypt/crypt.h>
#include <crypt/ecryptfs_records.h>
#include <kernel/ecryptfs_table.h>
#include <log/record_file.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <climits>
#include <string>

#include "PasswordKeyFile.h"
#include "base/Secret.h"
#include "devprofile/DeviceProfile.h"

namespace {

constexpr size_t kKeySize = 32;
const char kCheckAttribute[] = "user.pelk.ecryptfs_check";
const char kCheckLabel[] = "libpelk eCryptfs key check";
constexpr unsigned char kCheckFormat = 1;
constexpr size_t kSaltSize = 16;
constexpr size_t kMacSize = 32;
constexpr size_t kCheckSize = 1 + kSaltSize + kMacSize;
constexpr int kPrivateModeType = 'g';

// ---- records ----

hostlog::RecordFile& calls() {
    static auto* file = new hostlog::RecordFile("/sim/log/ecryptfs");
    return *file;
}

void record(const char* function, const char* lower, const char* upper, int mode, int reserved, int flag, int userId,
            int keyIndex, int type, int result) {
    std::string line = function;
    for (int n : {mode, reserved, flag, userId, keyIndex, type, result}) line += '\t' + std::to_string(n);
    line += '\t' + hostlog::escapeField(lower ? lower : "") + '\t' + hostlog::escapeField(upper ? upper : "") + '\n';
    calls().append(line);
}

// ---- the check value ----

bool checkMac(const unsigned char* key, const unsigned char* salt, unsigned char* mac) {
    unsigned char message[sizeof(kCheckLabel) - 1 + kSaltSize];
    memcpy(message, kCheckLabel, sizeof(kCheckLabel) - 1);
    memcpy(message + sizeof(kCheckLabel) - 1, salt, kSaltSize);
    unsigned int len = 0;
    return HMAC(EVP_sha256(), key, kKeySize, message, sizeof(message), mac, &len) != nullptr && len == kMacSize;
}

enum class KeyCheck { Matches, Absent, Refused };

KeyCheck checkKey(const char* lower, const unsigned char* key) {
    unsigned char stored[kCheckSize + 1];
    ssize_t n = getxattr(lower, kCheckAttribute, stored, sizeof(stored));
    if (n < 0 && errno == ENODATA) return KeyCheck::Absent;
    // A value of another shape (or one that cannot be read) opens nothing.
    if (n != static_cast<ssize_t>(kCheckSize) || stored[0] != kCheckFormat) return KeyCheck::Refused;
    unsigned char mac[kMacSize];
    if (!checkMac(key, stored + 1, mac)) return KeyCheck::Refused;
    return CRYPTO_memcmp(mac, stored + 1 + kSaltSize, kMacSize) == 0 ? KeyCheck::Matches : KeyCheck::Refused;
}

bool recordCheck(const char* lower, const unsigned char* key) {
    unsigned char value[kCheckSize];
    value[0] = kCheckFormat;
    return RAND_bytes(value + 1, kSaltSize) == 1 && checkMac(key, value + 1, value + 1 + kSaltSize) &&
           setxattr(lower, kCheckAttribute, value, sizeof(value), 0) == 0;
}

// ---- the mount ----

int mountWithKey(const unsigned char* key, const char* lower, const char* upper, int mode, int userId) {
    if (!key || !lower || !upper || !*lower || !*upper) {
        errno = EINVAL;
        return -1;
    }
    char lowerPath[PATH_MAX];
    char upperPath[PATH_MAX];
    struct stat st;
    if (!realpath(lower, lowerPath) || !realpath(upper, upperPath)) return -1;
    if (stat(lowerPath, &st) != 0) return -1;
    if (!S_ISDIR(st.st_mode)) {
        errno = ENOTDIR;
        return -1;
    }
    KeyCheck check = checkKey(lowerPath, key);
    if (check == KeyCheck::Refused) {
        errno = EKEYREJECTED;
        return -1;
    }
    if (mount(lowerPath, upperPath, nullptr, MS_BIND, nullptr) != 0) return -1;
    if ((check == KeyCheck::Absent && !recordCheck(lowerPath, key)) ||
        !hostkernel::registerEcryptfsMount(upperPath, lowerPath, userId, mode)) {
        int saved = errno;
        umount2(upperPath, MNT_DETACH);
        errno = saved;
        return -1;
    }
    return 0;
}

}  // namespace

extern "C" int mount_ecryptfs(const char* key, const char* lower, const char* upper, int mode, int reserved, int flag,
                              int userId, int type) {
    int result = devprofile::shouldFail("mount_ecryptfs")
                     ? -1
                     : mountWithKey(reinterpret_cast<const unsigned char*>(key), lower, upper, mode, userId);
    int saved = errno;
    record("mount_ecryptfs", lower, upper, mode, reserved, flag, userId, 0, type, result);
    errno = saved;
    return result;
}

extern "C" int mount_ecryptfs_withpwd(const char* password, const char* lower, const char* upper, int mode,
                                      int reserved, int flag, int userId, int keyIndex, int type) {
    int result = -1;
    if (!devprofile::shouldFail("mount_ecryptfs_withpwd")) {
        char keyFile[512];
        snprintf(keyFile, sizeof(keyFile),
                 type == kPrivateModeType ? "/data/system/users/privatemode_edk_%d" : "/data/system/users/zanth_edk_%d",
                 userId);
        pelk::SecretBuffer<pelkhost::kEdkKeySize> key;
        if (pelkhost::edkOpen(keyFile, password, key.data()))
            result = mountWithKey(key.data(), lower, upper, mode, userId);
        else
            errno = EKEYREJECTED;
    }
    int saved = errno;
    record("mount_ecryptfs_withpwd", lower, upper, mode, reserved, flag, userId, keyIndex, type, result);
    errno = saved;
    return result;
}

extern "C" int install_ecryptfs_keyring(void) {
    int result = devprofile::shouldFail("install_ecryptfs_keyring") ? -1 : 0;
    record("install_ecryptfs_keyring", nullptr, nullptr, 0, 0, 0, 0, 0, 0, result);
    return result;
}

// ---- host-only queries ----

std::vector<EcryptfsCall> ecryptfs_calls() {
    std::vector<EcryptfsCall> out;
    for (const std::string& line : hostlog::splitLines(calls().readAll())) {
        std::vector<std::string> f = hostlog::splitFields(line);
        if (f.size() != 10) continue;
        EcryptfsCall c;
        c.function = f[0];
        int* numbers[] = {&c.mode, &c.reserved, &c.flag, &c.userId, &c.keyIndex, &c.type, &c.result};
        for (size_t i = 0; i < 7; ++i) *numbers[i] = atoi(f[1 + i].c_str());
        c.lower = hostlog::unescapeField(f[8]);
        c.upper = hostlog::unescapeField(f[9]);
        out.push_back(c);
    }
    return out;
}

void ecryptfs_clear() { calls().clear(); }

int ecryptfs_keyring_installs() {
    int n = 0;
    for (const EcryptfsCall& c : ecryptfs_calls()) n += c.function == "install_ecryptfs_keyring" && c.result == 0;
    return n;
}

int ecryptfs_mount_count(const std::string& upper) {
    int n = 0;
    for (const EcryptfsCall& c : ecryptfs_calls())
        n += c.function != "install_ecryptfs_keyring" && c.result == 0 && c.upper == upper;
    return n;
}
