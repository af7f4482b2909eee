// Word splitting and sequence numbers of command lines.
#include "CommandLine.h"

#include <limits.h>

namespace sysutils {

namespace {

bool isBlank(char ch) { return ch == ' ' || ch == '\t'; }

}  // namespace

bool splitWords(char* line, std::vector<char*>* words) {
    // Unescaping only ever shrinks a word, so the write position never
    // passes the read position.
    char* src = line;
    char* dst = line;
    for (;;) {
        while (isBlank(*src)) ++src;
        if (*src == '\0') return true;

        char* start = dst;
        bool quoted = false;
        while (*src != '\0') {
            char ch = *src;
            if (ch == '\\') {
                if (src[1] != '\0') {
                    *dst++ = src[1];
                    src += 2;
                } else {
                    *dst++ = *src++;
                }
                continue;
            }
            if (ch == '"') {
                quoted = !quoted;
                ++src;
                continue;
            }
            if (!quoted && isBlank(ch)) break;
            *dst++ = *src++;
        }
        bool atEnd = *src == '\0';
        *dst++ = '\0';
        if (!atEnd) ++src;
        words->push_back(start);
        if (quoted) return false;
    }
}

bool parseSequenceNumber(const char* text, size_t len, int* out) {
    if (len == 0) return false;
    long long value = 0;
    for (size_t i = 0; i < len; ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
        value = value * 10 + (text[i] - '0');
        if (value > INT_MAX) return false;
    }
    *out = static_cast<int>(value);
    return true;
}

}  // namespace sysutils
