// Host only: what the device's trusted key store writes, for the simulated
// device's provisioning tool and for tests. The device itself never calls
// these; its key files come from the platform.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Builds the unwrapped blob of one key: two length-prefixed strings (the key
// name and the store tag) and the 4-byte key length, all big-endian, then
// the key. Answers the blob's length, or -1 when it does not fit `outSize`.
int TZ_KEYSTORE_host_make_blob(const char* keyName, const unsigned char* key, int keyLen, unsigned char* out,
                               int outSize);

// Wraps a blob into key file bytes for store `version` (3 or 4), bound to the
// password: only the same version's unwrap with the same password opens it.
// Answers the file's length (the blob plus 32 bytes), or -1.
int TZ_KEYSTORE_host_wrap(int version, const char* password, int passwordLen, const unsigned char* blob, int blobLen,
                          unsigned char* out, int outSize);

#ifdef __cplusplus
}
#endif
