// The one line every command writes about the line it received.
#pragma once

namespace pelk {

// Size of the buffer a command line is logged from, terminator included.
constexpr int DUMP_ARGS_SIZE = 4096;

// Logs "\n\nCMD > <words> \n" at DEBUG with the first argc words. A word
// that would not fit in the buffer is left out (with no blank for it) and
// the later words still get their chance, so one huge word never hides the
// rest of the line. Callers pass a smaller argc to keep secrets out.
void logCommandLine(int argc, char** argv);

// How many of a line's argc words to log when only the first `limit` may be.
inline int leadingWords(int argc, int limit) { return argc < limit ? argc : limit; }

}  // namespace pelk
