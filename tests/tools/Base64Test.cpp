#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "tools/Base64.h"

namespace {

// Encodes `bytes` from a buffer whose byte after the data is `after`.
std::string encode(const std::vector<unsigned char>& bytes, unsigned char after = 0) {
    std::vector<unsigned char> in(bytes);
    in.push_back(after);
    std::vector<char> out((bytes.size() + 2) / 3 * 4 + 1, '\0');
    base64e(in.data(), out.data(), static_cast<int>(bytes.size()));
    return out.data();
}

std::vector<unsigned char> text(const char* s) { return {s, s + strlen(s)}; }

// Decodes from a heap copy of exactly strlen + 1 bytes, so that any read
// past the terminator is caught by the address sanitizer.
struct Decoded {
    std::vector<unsigned char> written;
    int length;
};
Decoded decode(const char* s) {
    size_t n = strlen(s);
    std::unique_ptr<char, decltype(&free)> exact(static_cast<char*>(malloc(n + 1)), free);
    memcpy(exact.get(), s, n + 1);
    size_t cap = (n + 3) / 4 * 3;
    std::vector<unsigned char> out(cap + 4, 0xAA);
    int len = -7;
    base64d(exact.get(), out.data(), &len);
    for (size_t i = cap; i < out.size(); ++i) EXPECT_EQ(out[i], 0xAA) << "wrote past the groups at " << i;
    out.resize(cap);
    return {out, len};
}

}  // namespace

TEST(Base64, EncodesGroupsAndPadsTheRest) {
    EXPECT_EQ(encode(text("abc")), "YWJj");
    EXPECT_EQ(encode(text("a")), "YQ==");
    EXPECT_EQ(encode(text("ab")), "YWI=");
    EXPECT_EQ(encode(text("abcd")), "YWJjZA==");
    EXPECT_EQ(encode({0xFB, 0xFF, 0xBF}), "+/+/");
}

TEST(Base64, EncodingNothingWritesNothing) {
    unsigned char in[4] = {1, 2, 3, 4};
    char out[8] = {};
    base64e(in, out, 0);
    base64e(in, out, -3);
    EXPECT_STREQ(out, "");
}

TEST(Base64, TheByteAfterTheDataReachesTheOutput) {
    // Two bytes left: the top bits of the next byte land in the third character.
    EXPECT_EQ(encode(text("ab"), 0xFF), "YWL=");
    // One byte left: the next byte completes the second character.
    EXPECT_EQ(encode(text("a"), 0xFF), "Yf==");
}

TEST(Base64, DecodesWholeAndPaddedGroups) {
    Decoded d = decode("YWJj");
    EXPECT_EQ(d.length, 3);
    EXPECT_EQ(d.written, text("abc"));

    d = decode("YQ==");
    EXPECT_EQ(d.length, 1);
    EXPECT_EQ(d.written, (std::vector<unsigned char>{'a', 0, 0}));

    d = decode("YWI=");
    EXPECT_EQ(d.length, 2);
    EXPECT_EQ(d.written, (std::vector<unsigned char>{'a', 'b', 0}));
}

TEST(Base64, EmptyTextWritesNothing) {
    Decoded d = decode("");
    EXPECT_EQ(d.length, 0);
}

TEST(Base64, UnknownAndMissingCharactersDecodeAs63) {
    Decoded d = decode("!!!!");
    EXPECT_EQ(d.length, 3);
    EXPECT_EQ(d.written, (std::vector<unsigned char>{0xFF, 0xFF, 0xFF}));

    // An incomplete last group: the two missing characters count as 63 each
    // and are not pads, so the length covers the whole group.
    d = decode("YWJjYQ");
    EXPECT_EQ(d.length, 6);
    EXPECT_EQ(d.written, (std::vector<unsigned char>{'a', 'b', 'c', 'a', 0x0F, 0xFF}));

    d = decode("Y");
    EXPECT_EQ(d.length, 3);
    EXPECT_EQ(d.written, (std::vector<unsigned char>{0x63, 0xFF, 0xFF}));
}

TEST(Base64, KeyBytesSurviveTheRoundTrip) {
    for (size_t size : {16u, 32u, 33u, 64u}) {
        std::vector<unsigned char> key(size);
        for (size_t i = 0; i < size; ++i) key[i] = static_cast<unsigned char>(i * 37 + 11);
        Decoded d = decode(encode(key).c_str());
        ASSERT_EQ(d.length, static_cast<int>(size));
        d.written.resize(size);
        EXPECT_EQ(d.written, key) << "size " << size;
    }
}
