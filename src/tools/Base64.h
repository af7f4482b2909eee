// Base64 text of raw key bytes, and back (standard alphabet, "=" padding).
#pragma once

// Writes 4 characters for every started group of 3 bytes of `in`, and no
// terminating NUL: `out` must be zeroed and hold ((len + 2) / 3) * 4 + 1
// bytes. A `len` below 1 writes nothing.
//
// The byte just after the data, in[len], is read whenever len is not a
// multiple of 3. With one byte left it only completes the second character;
// with two left its top 2 bits go into the third. Callers therefore pass a
// buffer whose byte after the data is 0 (or count a trailing zero in len),
// which is also what makes the result the usual base64 text.
void base64e(const unsigned char* in, char* out, int len);

// Decodes the NUL-terminated `in` into `out` and sets *outLen. Three bytes are
// written for every started group of 4 characters, pads included, so `out`
// must hold ((strlen(in) + 3) / 4) * 3 bytes. Nothing is validated: a
// character outside the alphabet decodes as 63, and so does every missing
// character of an incomplete last group (as a zero byte would). An empty text
// writes nothing and sets *outLen to 0.
void base64d(const char* in, unsigned char* out, int* outLen);
