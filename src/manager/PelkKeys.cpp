// The manager's key and password operations: the storage keys fetched from
// the trusted key store, the DE key kept encrypted in the user's EDEK file,
// and the password-wrapped EDK file of the container encryption library.
//
// Every buffer that holds key bytes, key-derived bytes or a copy of a
// password is a SecretBuffer (or wiped explicitly), so it is cleared on
// every path out of these functions, failures included. The caller's output
// is written only on success.
#define LOG_TAG "pelkd"

#include <crypt/crypt.h>
#include <errno.h>
#include <fcntl.h>
#include <log/log.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <private/android_filesystem_config.h>
#include <memory>

#include "base/Secret.h"
#include "base/UniqueFd.h"
#include "keystore/Quarn3Helper.h"
#include "keystore/QuarnHelper.h"
#include "log/PelkLog.h"
#include "manager/KeyFileCalls.h"
#include "manager/Pelk.h"
#include "manager/StorageReport.h"
#include "tools/Base64.h"

namespace {

constexpr int kRawKeySize = 32;  // key bytes handed to mounts, then a zero
constexpr int kKeyPathSize = 512;
constexpr int kLengthFieldSize = 5;  // decimal text, NUL-padded
constexpr int kMaxCipherSize = 96;
constexpr int kAesBlock = 16;
constexpr uid_t kSystemId = AID_SYSTEM;
// The DE EDK of createKey.
constexpr int kKeyTypeDeEdk = 10;

void edkPath(int userId, char* path) {
    char id[32];
    snprintf(id, sizeof(id), "%d", userId);
    snprintf(path, kKeyPathSize, "/data/system/users/zanth_edk_%s", id);
}

void deEdkPath(int userId, char* path) {
    snprintf(path, kKeyPathSize, "/data/system/users/%d/zanth_edk_de_%d", userId, userId);
}

// Gives a key file to the system user alone; a file that cannot be given
// is removed rather than left readable by the wrong owner.
int restrictToSystem(const char* path) {
    if (chmod(path, 0600) != 0) {
        SLOGE("Failed to chmod for EDK :: Error\n");
        unlink(path);
        return -1;
    }
    if (chown(path, kSystemId, kSystemId) != 0) {
        SLOGE("Failed to chown for EDK :: Error\n");
        unlink(path);
        return -1;
    }
    return 0;
}

// Reads exactly `len` bytes; a short file counts as unreadable.
bool readExactly(int fd, void* buf, size_t len) {
    return Quarn3Helper::readFully(fd, buf, len) == static_cast<ssize_t>(len);
}

// The EDEK's AES key: the first 32 characters of the base64 text of the CE
// key. `ceKey` must lie in a zero-filled buffer of kQuarnKeyBufferSize bytes.
void deriveEdekKey(const unsigned char* ceKey, int ceLen, unsigned char* aesKey) {
    pelk::SecretBuffer<kQuarnKeyBufferSize * 2> text;
    base64e(ceKey, text.chars(), ceLen);
    memcpy(aesKey, text.data(), kRawKeySize);
}

// Decrypts the DE key of an existing EDEK file into `deKey`.
int readEdek(const char* path, const unsigned char* aesKey, const unsigned char* iv, unsigned char* deKey) {
    pelk::UniqueFd fd(TEMP_FAILURE_RETRY(open(path, O_RDONLY | O_CLOEXEC)));
    if (!fd.ok()) {
        SLOGE("Cannot open edkLen for read(%s)!\n", strerror(errno));
        return -1;
    }
    char lengthText[kLengthFieldSize + 1] = {};
    if (!readExactly(fd.get(), lengthText, kLengthFieldSize)) return -1;
    int cipherLen = atoi(lengthText);
    if (cipherLen <= 0 || cipherLen > kMaxCipherSize) return -1;
    unsigned char cipher[kMaxCipherSize];
    if (!readExactly(fd.get(), cipher, cipherLen)) return -1;
    fd.reset();

    pelk::SecretBuffer<kMaxCipherSize + kAesBlock> plain;
    int plainLen = aes_256_cbc_decrypt(cipher, cipherLen, aesKey, iv, plain.data());
    if (plainLen != kRawKeySize) {
        pelk::reportPrepareFailure("Prepare DE ERROR : Failed to decrypt fekek_de!!\n");
        return -1;
    }
    memcpy(deKey, plain.data(), kRawKeySize);
    return 0;
}

// Makes a new random DE key into `deKey` and writes its EDEK file.
int writeNewEdek(const char* path, const unsigned char* aesKey, const unsigned char* iv, unsigned char* deKey) {
    if (generate_random_key(deKey, kRawKeySize) != 0) {
        pelk::reportPrepareFailure("Prepare DE ERROR : Failed to create fekek_de!!\n");
        return -1;
    }
    unsigned char cipher[kMaxCipherSize + kAesBlock];
    int cipherLen = aes_256_cbc_encrypt(deKey, kRawKeySize, aesKey, iv, cipher);
    if (cipherLen < 0) {
        pelk::reportPrepareFailure("Prepare DE ERROR : Failed to encrypt fekek_de!!\n");
        return -1;
    }
    if (cipherLen > kMaxCipherSize) return -1;
    char lengthText[16];
    int textLen = snprintf(lengthText, sizeof(lengthText), "%d", cipherLen);
    if (textLen > kLengthFieldSize) return -1;

    unsigned char record[kLengthFieldSize + kMaxCipherSize] = {};
    memcpy(record, lengthText, textLen);
    memcpy(record + kLengthFieldSize, cipher, cipherLen);
    if (ssWrite(path, record, cipherLen + kLengthFieldSize) != 0) return -1;
    return restrictToSystem(path);
}

}  // namespace

int Pelk::getFEKEK(int userId, char* key, bool* isRawKey, int keyType) {
    std::unique_ptr<QuarnHelper> helper(new QuarnHelper(userId, keyType));
    pelk::SecretBuffer<kQuarnKeyBufferSize> fetched;
    int len = 0;
    int rc = helper->getKeyFromQuarnKeyStore(fetched.data(), &len);
    if (rc == -1 || len < 1) return -1;
    // Mounts take exactly 32 key bytes, whatever the store holds.
    memcpy(key, fetched.data(), kRawKeySize);
    key[kRawKeySize] = 0;
    *isRawKey = true;
    return 0;
}

int Pelk::getDEKeyFromEDEK(int userId, char* key, bool create) {
    pelk::SecretBuffer<kQuarnKeyBufferSize> ceKey;
    int ceLen = 0;
    {
        std::unique_ptr<QuarnHelper> helper(new QuarnHelper(userId, kQuarnKeyCe));
        int rc = helper->getKeyFromQuarnKeyStore(ceKey.data(), &ceLen);
        if (rc == -1 || ceLen <= 0) {
            pelk::reportPrepareFailure("Prepare DE ERROR : Failed to get fekek_ce!!\n");
            return -1;
        }
    }
    pelk::SecretBuffer<kRawKeySize> aesKey;
    deriveEdekKey(ceKey.data(), ceLen, aesKey.data());
    const unsigned char iv[kAesBlock] = {};

    char path[kKeyPathSize];
    deEdkPath(userId, path);
    pelk::SecretBuffer<kRawKeySize> deKey;
    int rc =
        create ? writeNewEdek(path, aesKey.data(), iv, deKey.data()) : readEdek(path, aesKey.data(), iv, deKey.data());
    if (rc != 0) return -1;
    memcpy(key, deKey.data(), kRawKeySize);
    key[kRawKeySize] = 0;
    return 0;
}

int Pelk::createKey(int userId, const char* password, int keyType) {
    char path[kKeyPathSize];
    if (keyType == kKeyTypeDeEdk)
        deEdkPath(userId, path);
    else
        edkPath(userId, path);
    if (pelk::createKeyFile(path, password) != 0) return -1;
    // The container EDK keeps the mode and owner the library gave it.
    if (keyType == kKeyTypeDeEdk) return restrictToSystem(path);
    return 0;
}

int Pelk::verifyPassword(int userId, const char* password) {
    char path[kKeyPathSize];
    edkPath(userId, path);
    if (pelk::verifyKeyFilePassword(path, password) != 0) {
        SLOGE("Invalid");
        return -1;
    }
    return 0;
}

int Pelk::changePassword(int userId, const char* oldPassword, const char* newPassword) {
    char path[kKeyPathSize];
    edkPath(userId, path);
    return pelk::changeKeyFilePassword(path, oldPassword, newPassword);
}

int Pelk::removePassword(int userId) {
    char path[kKeyPathSize];
    edkPath(userId, path);
    if (access(path, F_OK) != 0) return 0;
    pelk::deleteKeyFile(path);
    // Callers go on with their teardown either way.
    return 0;
}

int Pelk::changeEDKFilePermission(int userId, unsigned int mode, unsigned int uid, unsigned int gid) {
    char path[kKeyPathSize] = {0};
    edkPath(userId, path);
    struct stat st;
    if (stat(path, &st) != 0) {
        SLOGE("EDK No available :: Error\n");
        return -1;
    }
    if (chmod(path, mode) != 0) {
        SLOGE("Failed to chmod for EDK :: Error\n");
        return -1;
    }
    if (chown(path, uid, gid) != 0) {
        SLOGE("Failed to chown for EDK :: Error\n");
        return -1;
    }
    return 0;
}
