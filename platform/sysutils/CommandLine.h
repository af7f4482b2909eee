// Splitting one command line into words, in place.
#pragma once

#include <stddef.h>

#include <vector>

namespace sysutils {

// Splits line into words separated by blanks (space or tab). Double quotes
// group characters, blanks included, into one word; a backslash makes the
// next character literal, and a backslash at the very end stands for
// itself. The words are written back into line, NUL-terminated, and their
// starts are appended to words. Answers false when a quote was left open
// (words then holds what was split, the open word last).
bool splitWords(char* line, std::vector<char*>* words);

// True when text[0, len) is a decimal number in 0..INT_MAX, stored in *out.
bool parseSequenceNumber(const char* text, size_t len, int* out);

}  // namespace sysutils
