// The simulated device's trusted key store: one device key, kept in a file
// only root can read, from which every other key of the store is derived.
// Nothing outside the store ever sees it.
#pragma once

#include <stddef.h>

namespace tzks {

constexpr size_t kStoreKeySize = 32;

// Loads the device key into `key`, creating it with random bytes on first
// use. Safe when several processes of the device race to create it.
bool loadDeviceKey(unsigned char* key);
// A key of the store for one purpose: HMAC-SHA256 of the label under the
// device key. False when the device key is unavailable.
bool deriveStoreKey(const char* label, unsigned char* key);

}  // namespace tzks
