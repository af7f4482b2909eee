#include "tools/Base64.h"

#include <string.h>

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
const char kPad = '=';

// Value of each byte in the alphabet, -1 for every other byte.
struct DecodeTable {
    int value[256];
    DecodeTable() {
        for (int& v : value) v = -1;
        for (int i = 0; i < 64; ++i) value[static_cast<unsigned char>(kAlphabet[i])] = i;
    }
};

const DecodeTable kDecode;

// Only the low 6 bits are used, so an unknown byte (-1) counts as 63.
unsigned sextet(char c) { return static_cast<unsigned>(kDecode.value[static_cast<unsigned char>(c)]) & 0x3f; }

}  // namespace

void base64e(const unsigned char* in, char* out, int len) {
    int o = 0;
    for (int i = 0; i < len; i += 3) {
        unsigned a = in[i];
        unsigned b = in[i + 1];
        unsigned c = i + 2 > len ? 0 : in[i + 2];
        out[o] = kAlphabet[a >> 2];
        out[o + 1] = kAlphabet[((a & 0x03) << 4) | (b >> 4)];
        out[o + 2] = i + 2 > len ? kPad : kAlphabet[((b & 0x0f) << 2) | (c >> 6)];
        out[o + 3] = i + 3 > len ? kPad : kAlphabet[c & 0x3f];
        o += 4;
    }
}

void base64d(const char* in, unsigned char* out, int* outLen) {
    int n = static_cast<int>(strlen(in));
    if (n == 0) {
        *outLen = 0;
        return;
    }
    // Characters past the end of the text read as the NUL byte, never from
    // beyond the caller's buffer.
    auto at = [in, n](int i) { return i < n ? in[i] : '\0'; };
    int pads = 0;
    int o = 0;
    for (int i = 0; i < n; i += 4) {
        unsigned v0 = sextet(at(i));
        unsigned v1 = sextet(at(i + 1));
        unsigned v2 = 0;
        unsigned v3 = 0;
        if (at(i + 2) == kPad)
            ++pads;
        else
            v2 = sextet(at(i + 2));
        if (at(i + 3) == kPad)
            ++pads;
        else
            v3 = sextet(at(i + 3));
        out[o++] = static_cast<unsigned char>((v0 << 2) | (v1 >> 4));
        out[o++] = static_cast<unsigned char>(((v1 & 0x0f) << 4) | (v2 >> 2));
        out[o++] = static_cast<unsigned char>(((v2 & 0x03) << 6) | v3);
    }
    *outLen = ((n - 1) / 4) * 3 + 3 - pads;
}
