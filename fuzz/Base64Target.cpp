// One input as a text for base64d, into an output buffer of exactly the
// size its contract asks for; and as raw bytes through base64e and back,
// which must give the same bytes.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "tools/Base64.h"

namespace {

// Keeps the lengths within int, as every caller's are.
const size_t kMaxInput = 1 << 20;

const char kTarget[] = "fuzz_base64d";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > kMaxInput) return 0;
    std::string text(reinterpret_cast<const char*>(data), size);
    text.resize(strlen(text.c_str()));
    // Exactly the contract's size: one byte more written is a heap overflow.
    std::vector<unsigned char> decoded((text.size() + 3) / 4 * 3);
    int decodedLen = -1;
    base64d(text.c_str(), decoded.data(), &decodedLen);
    if (decodedLen < 0 || static_cast<size_t>(decodedLen) > decoded.size())
        fuzzcheck::fail(kTarget, "decoded length out of range", size);

    // The encoder reads the byte after the data: a zero, as callers pass.
    std::vector<unsigned char> raw(data, data + size);
    raw.push_back(0);
    std::vector<char> encoded((size + 2) / 3 * 4 + 1, 0);
    base64e(raw.data(), encoded.data(), static_cast<int>(size));
    std::vector<unsigned char> back((strlen(encoded.data()) + 3) / 4 * 3);
    int backLen = -1;
    base64d(encoded.data(), back.data(), &backLen);
    if (static_cast<size_t>(backLen) != size || (size > 0 && memcmp(back.data(), data, size) != 0))
        fuzzcheck::fail(kTarget, "encoding and decoding changed the bytes", size);
    return 0;
}
