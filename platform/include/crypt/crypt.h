// Container encryption library (closed; host edition: platform/crypt).
// The chamber registration calls live in <chamber/chamber.h>.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// ---- encryption mode (answers from the device profile) ----
// Non-zero when the device uses file-based encryption.
int isFBESupported(void);
// Non-zero when the user's storage uses the older, mounted scheme.
int isLegacyEncryption(int userId);
// Non-zero while on-device encryption is in progress.
int isOdeInProgress(void);

// ---- eCryptfs ----
// Prepares the kernel keyring that eCryptfs mounts use; result not relied on.
int install_ecryptfs_keyring(void);
// Mounts eCryptfs over lower at upper with a raw key; mode comes from the
// partition type, reserved is 0, flag is the partition's flag. 0 on success.
int mount_ecryptfs(const char* key, const char* lower, const char* upper, int mode, int reserved, int flag, int userId,
                   int type);
// The same with a password that unwraps the user's stored key (keyIndex is
// -1); 0 on success.
int mount_ecryptfs_withpwd(const char* password, const char* lower, const char* upper, int mode, int reserved, int flag,
                           int userId, int keyIndex, int type);

// ---- password-wrapped key files (EDK) ----
// Creates a key file wrapped by password; 0 on success.
int fips_create_edk(const char* path, const char* password);
// 0 when password opens the key file.
int fips_verify_password(const char* path, const char* password);
// Re-wraps the key file under newPassword; 0 on success.
int fips_change_password(const char* oldPassword, const char* newPassword, const char* path);
// Deletes the key file; 0 on success.
int fips_delete_edk(const char* path);

// ---- key material ----
// Fills len random bytes; 0 on success.
int generate_random_key(unsigned char* out, int len);
// AES-256-CBC with block padding (32-byte key, 16-byte iv). Encrypt answers
// the ciphertext length (out needs room for len + 16 bytes), negative on
// failure. Decrypt writes only the plaintext bytes (a 32-byte key from 48
// bytes of ciphertext fits a 32-byte out) and answers their count, -1 on
// failure.
int aes_256_cbc_encrypt(const unsigned char* plain, int len, const unsigned char* key, const unsigned char* iv,
                        unsigned char* out);
int aes_256_cbc_decrypt(const unsigned char* cipher, int len, const unsigned char* key, const unsigned char* iv,
                        unsigned char* out);
// Writes len bytes as the whole content of path, replaced atomically; 0 on
// success.
int ssWrite(const char* path, const void* data, int len);

#ifdef __cplusplus
}
#endif
