// Whole-file replacement for the host container encryption library: the
// new content goes to a temporary file in the same folder, is synced, and is
// renamed over the old one, so a crash leaves either the old file or the new
// one, never a mix.
#pragma once

#include <stddef.h>

namespace pelkhost {

// Answers true when `path` now holds exactly `len` bytes of `data` (mode 0600).
bool replaceFileAtomically(const char* path, const void* data, size_t len);
// Reads a whole small file (at most `cap` bytes); answers its size, or -1
// when it cannot be read or is larger than `cap`.
long readSmallFile(const char* path, unsigned char* buf, size_t cap);

}  // namespace pelkhost
