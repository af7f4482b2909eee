// Layout of an unwrapped key blob, all lengths big-endian:
//   u16 len, string | u16 len, string | u32 N | N key bytes
#include <stdint.h>
#include <string.h>

#include "keystore/Quarn3Helper.h"

int Quarn3Helper::getUTFPtr(const unsigned char* buf, int offset, int len) {
    if (offset + 1 >= len) return 0;
    int strLen = (buf[offset] << 8) | buf[offset + 1];
    return offset + strLen + 2;
}

int Quarn3Helper::getEnc(unsigned char* out, const unsigned char* blob, int len, int* keyLen) {
    int offset = getUTFPtr(blob, 0, len);
    offset = getUTFPtr(blob, offset, len);
    if (offset < 0 || offset + 4 > len) {
        *keyLen = 0;
        return -1;
    }
    uint32_t n = (uint32_t(blob[offset]) << 24) | (uint32_t(blob[offset + 1]) << 16) |
                 (uint32_t(blob[offset + 2]) << 8) | uint32_t(blob[offset + 3]);
    *keyLen = static_cast<int>(n);
    // The store writes these blobs; a length that runs past the blob can only
    // be damage, and is never followed.
    if (*keyLen <= 0 || *keyLen > len - offset - 4) return -1;
    memcpy(out, blob + offset + 4, *keyLen);
    return 0;
}
