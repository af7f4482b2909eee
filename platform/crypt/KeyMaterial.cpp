// Random keys and AES-256-CBC with PKCS#7 padding (32 bytes of plain text
// become 48 of cipher text).
#include <crypt/crypt.h>
#include <devprofile/DeviceProfile.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <string.h>

#include <vector>

#include "Aead.h"
#include "base/Secret.h"

namespace {

constexpr int kBlock = 16;

// Runs one whole CBC pass; answers the output length, or -1.
int cbc(bool encrypt, const unsigned char* in, int len, const unsigned char* key, const unsigned char* iv,
        unsigned char* out) {
    pelkhost::CipherCtx ctx(EVP_CIPHER_CTX_new());
    int n = 0, total = 0;
    if (!ctx || EVP_CipherInit_ex(ctx.get(), EVP_aes_256_cbc(), nullptr, key, iv, encrypt ? 1 : 0) != 1) return -1;
    if (EVP_CipherUpdate(ctx.get(), out, &n, in, len) != 1) return -1;
    total = n;
    if (EVP_CipherFinal_ex(ctx.get(), out + total, &n) != 1) return -1;
    return total + n;
}

}  // namespace

extern "C" int generate_random_key(unsigned char* buf, int len) {
    if (devprofile::shouldFail("generate_random_key")) return -1;
    if (!buf || len <= 0) return -1;
    return RAND_bytes(buf, len) == 1 ? 0 : -1;
}

extern "C" int aes_256_cbc_encrypt(const unsigned char* plain, int len, const unsigned char* key,
                                   const unsigned char* iv, unsigned char* out) {
    if (devprofile::shouldFail("aes_256_cbc_encrypt")) return -1;
    if (!plain || len < 0 || !key || !iv || !out) return -1;
    return cbc(true, plain, len, key, iv, out);
}

// The plain text is at most one block shorter than the cipher text. It is
// produced in a buffer of our own, so a damaged cipher text never writes
// padding garbage into the caller's buffer.
extern "C" int aes_256_cbc_decrypt(const unsigned char* cipher, int len, const unsigned char* key,
                                   const unsigned char* iv, unsigned char* out) {
    if (devprofile::shouldFail("aes_256_cbc_decrypt")) return -1;
    if (!cipher || len <= 0 || len % kBlock || !key || !iv || !out) return -1;
    std::vector<unsigned char> plain(len + kBlock);
    pelk::WipeOnExit wipePlain(plain.data(), plain.size());
    int n = cbc(false, cipher, len, key, iv, plain.data());
    if (n < 0) return -1;
    memcpy(out, plain.data(), n);
    return n;
}
