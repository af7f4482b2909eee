// The password-wrapped key file (EDK) of the host container encryption
// library. It holds one random 32-byte key sealed under a key derived from
// the password with a salted, deliberately slow PBKDF2:
//
//   "PEDK" | format 1 | iterations (u32, big-endian) | salt 16 | nonce 12 |
//   sealed key 32 + tag 16
//
// Everything before the sealed key is authenticated with it, so a changed
// salt or iteration count fails like a wrong password.
#pragma once

#include <stddef.h>

namespace pelkhost {

constexpr size_t kEdkKeySize = 32;

// Seals `key` under `password` into `path`, replacing any old file at once.
bool edkWrite(const char* path, const char* password, const unsigned char* key);
// Opens `path` with `password` into `key`; false for a wrong password, a
// damaged file or no file, and `key` is then left untouched.
bool edkOpen(const char* path, const char* password, unsigned char* key);

}  // namespace pelkhost
