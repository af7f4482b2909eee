// Static routines that read one wrapped key from the device's trusted key
// store: the key file's path (with the store's file-name encryption), the
// read, the connector's unwrap and the parse of the unwrapped blob. Every
// buffer that held a password, wrapped bytes or key bytes is wiped before
// any of them returns.
#pragma once

#include <private/android_filesystem_config.h>
#include <stddef.h>
#include <sys/types.h>
#include <tzkeystore/tz_keystore.h>

// Both unwrap functions of the connector share this shape.
using QuarnUnwrapFn = decltype(&TZ_KEYSTORE_unwrap_key);

// Size of the key buffers of the key store path: callers of the readers hand
// in an output buffer of at least this many bytes.
constexpr int kQuarnKeyBufferSize = 4096;
// At most this many bytes of a key file are read and unwrapped.
constexpr int kQuarnKeyFileMax = 1024;
// Longest password the unwrap accepts.
constexpr int kQuarnPasswordMax = 32;
// Key files of every user are addressed as this uid.
constexpr int kQuarnSystemUid = AID_SYSTEM;

class Quarn3Helper {
public:
    Quarn3Helper() {}

    // Copies the store directory of version 3 or 4 into `dst`; -1 for any
    // other version or when it does not fit `size` with its NUL.
    static int getQ3KSPath(int version, char* dst, size_t size);
    // True when the key file of `keyName` exists in the store of `version`.
    static bool isQuarn3KeyExist(int version, const char* keyName);
    // Writes "<dir>user_0/<encrypted name>" into `dst` (cleared first).
    // Answers 0; -1 (with `dst` empty) when the name cannot be encrypted.
    static int get_keyname(const char* keyName, int uid, const char* dir, char* dst, size_t size);
    // The store's encrypted file name of `name` into `out` (4096 bytes,
    // cleared first). Answers 0, or -1 when the connector refuses.
    static int quarn_encrypt_filename(int uid, const char* name, char* out);

    // Reads until `len` bytes or end of file, retrying on EINTR. Answers the
    // number of bytes read, or -1 when a read failed before any byte came.
    static ssize_t readFully(int fd, void* buf, size_t len);
    // Offset just after the 2-byte-length-prefixed string at `offset`, or 0
    // when `offset + 1` is not below `len`.
    static int getUTFPtr(const unsigned char* buf, int offset, int len);
    // Parses an unwrapped blob (two skipped strings, a 4-byte key length N,
    // the key) and copies the N key bytes to `out`; `*keyLen` = N. Answers 0,
    // or -1 (nothing copied) when N is not positive or the key would lie
    // beyond the blob.
    static int getEnc(unsigned char* out, const unsigned char* blob, int len, int* keyLen);

    // Reads and unwraps the key `keyName` of the store in `dir`. On success
    // `out` holds the key and one terminating zero, `*len` counts both, and
    // the answer is 0; otherwise -1 and `out` is untouched.
    static int getKeyFromQ3KS(const char* dir, unsigned char* out, int* len, const char* keyName, const char* password,
                              QuarnUnwrapFn unwrap);
    // The key of `userId` from the store of `version` (3 or 4). Answers the
    // version, or -1.
    static int getKeyFromQuarn3(int userId, int version, unsigned char* out, int* len, const char* keyName);
};
