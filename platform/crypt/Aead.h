// Authenticated encryption (AES-256-GCM) for the host editions that keep
// wrapped keys: the container encryption library's password-wrapped key
// files and the trusted key store's key files. A sealed record is the
// ciphertext followed by its 16-byte tag; any change to the record, the
// key or the associated data makes opening it fail.
#pragma once

#include <openssl/evp.h>
#include <stddef.h>

#include <memory>

namespace pelkhost {

constexpr size_t kAeadKeySize = 32;
constexpr size_t kAeadNonceSize = 12;
constexpr size_t kAeadTagSize = 16;

struct CipherCtxFree {
    void operator()(EVP_CIPHER_CTX* ctx) const { EVP_CIPHER_CTX_free(ctx); }
};
using CipherCtx = std::unique_ptr<EVP_CIPHER_CTX, CipherCtxFree>;

// Writes len + kAeadTagSize bytes to `out`; answers that count, or -1.
inline int aeadSeal(const unsigned char* key, const unsigned char* nonce, const unsigned char* aad, size_t aadLen,
                    const unsigned char* plain, size_t len, unsigned char* out) {
    CipherCtx ctx(EVP_CIPHER_CTX_new());
    int n = 0, total = 0;
    if (!ctx || EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, key, nonce) != 1) return -1;
    if (aadLen && EVP_EncryptUpdate(ctx.get(), nullptr, &n, aad, static_cast<int>(aadLen)) != 1) return -1;
    if (len && EVP_EncryptUpdate(ctx.get(), out, &n, plain, static_cast<int>(len)) != 1) return -1;
    total = n;
    if (EVP_EncryptFinal_ex(ctx.get(), out + total, &n) != 1) return -1;
    total += n;
    if (EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, kAeadTagSize, out + total) != 1) return -1;
    return total + static_cast<int>(kAeadTagSize);
}

// Opens a sealed record of `sealedLen` bytes into `out` (sealedLen -
// kAeadTagSize bytes); answers the plaintext length, or -1 when the record
// does not authenticate. On failure `out` may hold garbage the caller wipes.
inline int aeadOpen(const unsigned char* key, const unsigned char* nonce, const unsigned char* aad, size_t aadLen,
                    const unsigned char* sealed, size_t sealedLen, unsigned char* out) {
    if (sealedLen < kAeadTagSize) return -1;
    size_t len = sealedLen - kAeadTagSize;
    unsigned char tag[kAeadTagSize];
    for (size_t i = 0; i < kAeadTagSize; ++i) tag[i] = sealed[len + i];
    CipherCtx ctx(EVP_CIPHER_CTX_new());
    int n = 0, total = 0;
    if (!ctx || EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, key, nonce) != 1) return -1;
    if (aadLen && EVP_DecryptUpdate(ctx.get(), nullptr, &n, aad, static_cast<int>(aadLen)) != 1) return -1;
    if (len && EVP_DecryptUpdate(ctx.get(), out, &n, sealed, static_cast<int>(len)) != 1) return -1;
    total = n;
    if (EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, kAeadTagSize, tag) != 1) return -1;
    if (EVP_DecryptFinal_ex(ctx.get(), out + total, &n) != 1) return -1;
    return total + n;
}

}  // namespace pelkhost
