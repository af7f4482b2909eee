// Trusted key store connector (closed; host edition: platform/tzkeystore).
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// 0 when the store is usable.
int TZ_KEYSTORE_initialize(void);

// Writes the store's encrypted file name of a key name, NUL-terminated, into
// out (4096 bytes). Deterministic for the same arguments. 0 on success.
int TZ_KEYSTORE_encrypt_filename(int uid, int flags, const char* tag, int tagLen, const char* name, int nameLen,
                                 char* out);

// Unwrap a version 3 (quarn_keystore) or version 4 (fips_quarn_keystore) key
// file into its blob; *outLen is set to the blob's length, 0 on failure.
int TZ_KEYSTORE_unwrap_key(const char* password, int passwordLen, const uint8_t* wrapped, int wrappedLen, uint8_t* out,
                           int* outLen);
int TZ_KEYSTORE_fips_unwrap_key(const char* password, int passwordLen, const uint8_t* wrapped, int wrappedLen,
                                uint8_t* out, int* outLen);

#ifdef __cplusplus
}
#endif
