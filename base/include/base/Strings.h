// Bounded copies into the fixed-size buffers the device's formats use.
#pragma once

#include <stddef.h>

namespace pelk {

// Copies src into dst of size bytes, cutting what does not fit: the whole
// buffer is zero-filled first, so it always ends with a terminator (when
// size > 0) and no earlier content survives behind the new text. Returns the length of src, so a result of
// size or more tells the caller the text was cut.
size_t copyWord(char* dst, size_t size, const char* src);

}  // namespace pelk
