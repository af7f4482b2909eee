// Container encryption library (closed; host edition: platform/crypt).
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

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
extern "C" {
#endif

// ---- eCryptfs ----
// Prepares the kernel keyring that eCryptfs mounts use.
int install_ecryptfs_keyring(void);
// Mounts eCryptfs over lower at upper with a raw key; 0 on success.
int mount_ecryptfs(const char* key, const char* lower, const char* upper, int mode, int reserved, int flag,
                   int userId, int type);
// The same with a password that unwraps the stored key; 0 on success.
int mount_ecryptfs_withpwd(const char* password, const char* lower, const char* upper, int mode, int reserved,
                           int flag, int userId, int keyIndex, int type);

// ---- password-wrapped key files (EDK) ----
int fips_create_edk(const char* path, const char* password);           // 0 on success
int fips_verify_password(const char* path, const char* password);      // 0 when it opens
int fips_change_password(const char* oldPassword, const char* newPassword, const char* path);
int fips_delete_edk(const char* path);                                 // 0 on success

// ---- key material ----
int generate_random_key(unsigned char* out, int len);  // 0 on success
// AES-256-CBC with PKCS#7 padding: answers the output length, negative on failure.
int aes_256_cbc_encrypt(const unsigned char* plain, int len, const unsigned char* key, const unsigned char* iv,
                        unsigned char* out);
int aes_256_cbc_decrypt(const unsigned char* cipher, int len, const unsigned char* key, const unsigned char* iv,
                        unsigned char* out);
// Writes the file atomically; 0 on success.
int ssWrite(const char* path, const void* data, int len);

#ifdef __cplusplus
}
#endif
