// Bounded copies into fixed-size buffers.
#include "base/Strings.h"

#include <string.h>

namespace pelk {

size_t copyWord(char* dst, size_t size, const char* src) {
    size_t len = strlen(src);
    if (size == 0) return len;
    memset(dst, 0, size);
    memcpy(dst, src, len < size - 1 ? len : size - 1);
    return len;
}

}  // namespace pelk
