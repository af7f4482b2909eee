#include "PasswordKeyFile.h"

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <string.h>

#include "Aead.h"
#include "AtomicFile.h"
#include "base/Secret.h"

namespace pelkhost {
namespace {

const unsigned char kMagic[4] = {'P', 'E', 'D', 'K'};
constexpr unsigned char kFormat = 1;
constexpr unsigned kIterations = 100000;
constexpr size_t kSaltSize = 16;

constexpr size_t kIterOffset = sizeof(kMagic) + 1;
constexpr size_t kSaltOffset = kIterOffset + 4;
constexpr size_t kNonceOffset = kSaltOffset + kSaltSize;
constexpr size_t kHeaderSize = kNonceOffset + kAeadNonceSize;  // authenticated, not secret
constexpr size_t kFileSize = kHeaderSize + kEdkKeySize + kAeadTagSize;

unsigned readU32(const unsigned char* p) {
    return (unsigned(p[0]) << 24) | (unsigned(p[1]) << 16) | (unsigned(p[2]) << 8) | unsigned(p[3]);
}

void writeU32(unsigned char* p, unsigned v) {
    p[0] = v >> 24;
    p[1] = v >> 16;
    p[2] = v >> 8;
    p[3] = v;
}

bool derivePasswordKey(const char* password, const unsigned char* salt, unsigned iterations, unsigned char* kek) {
    return PKCS5_PBKDF2_HMAC(password, static_cast<int>(strlen(password)), salt, kSaltSize,
                             static_cast<int>(iterations), EVP_sha256(), kAeadKeySize, kek) == 1;
}

}  // namespace

bool edkWrite(const char* path, const char* password, const unsigned char* key) {
    if (!path || !password || !key) return false;
    unsigned char file[kFileSize] = {};
    memcpy(file, kMagic, sizeof(kMagic));
    file[sizeof(kMagic)] = kFormat;
    writeU32(file + kIterOffset, kIterations);
    if (RAND_bytes(file + kSaltOffset, kSaltSize + kAeadNonceSize) != 1) return false;

    pelk::SecretBuffer<kAeadKeySize> kek;
    if (!derivePasswordKey(password, file + kSaltOffset, kIterations, kek.data())) return false;
    int sealed = aeadSeal(kek.data(), file + kNonceOffset, file, kHeaderSize, key, kEdkKeySize, file + kHeaderSize);
    return sealed == static_cast<int>(kEdkKeySize + kAeadTagSize) && replaceFileAtomically(path, file, kFileSize);
}

bool edkOpen(const char* path, const char* password, unsigned char* key) {
    if (!path || !password || !key) return false;
    unsigned char file[kFileSize];
    if (readSmallFile(path, file, sizeof(file)) != static_cast<long>(kFileSize)) return false;
    if (memcmp(file, kMagic, sizeof(kMagic)) != 0 || file[sizeof(kMagic)] != kFormat) return false;
    unsigned iterations = readU32(file + kIterOffset);
    if (iterations == 0 || iterations > 10 * kIterations) return false;

    pelk::SecretBuffer<kAeadKeySize> kek;
    pelk::SecretBuffer<kEdkKeySize> opened;
    if (!derivePasswordKey(password, file + kSaltOffset, iterations, kek.data())) return false;
    int len = aeadOpen(kek.data(), file + kNonceOffset, file, kHeaderSize, file + kHeaderSize,
                       kEdkKeySize + kAeadTagSize, opened.data());
    if (len != static_cast<int>(kEdkKeySize)) return false;
    memcpy(key, opened.data(), kEdkKeySize);
    return true;
}

}  // namespace pelkhost
