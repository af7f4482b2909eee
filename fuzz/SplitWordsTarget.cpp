// One input as a command line for the framework's word splitter (in place,
// in a buffer of exactly the line's size) and as a sequence number. Every
// word handed back must start inside the line and end before its
// terminator, and the words must follow each other in order.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "CommandLine.h"
#include "FuzzCheck.h"

namespace {

const char kTarget[] = "fuzz_split_words";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    int seq = -1;
    if (sysutils::parseSequenceNumber(reinterpret_cast<const char*>(data), size, &seq) && seq < 0)
        fuzzcheck::fail(kTarget, "a negative sequence number", size);

    std::string text(reinterpret_cast<const char*>(data), size);
    size_t len = strlen(text.c_str());
    std::vector<char> line(text.c_str(), text.c_str() + len + 1);
    std::vector<char*> words;
    sysutils::splitWords(line.data(), &words);
    const char* end = line.data() + len;
    const char* previous = line.data();
    for (const char* word : words) {
        if (word < previous || word > end) fuzzcheck::fail(kTarget, "a word outside the line", size);
        previous = word + strnlen(word, static_cast<size_t>(end - word) + 1);
        if (previous > end) fuzzcheck::fail(kTarget, "a word without its terminator", size);
    }
    return 0;
}
