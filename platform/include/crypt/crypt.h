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
