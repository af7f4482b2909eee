#include "tools/PathElements.h"

#include <stdlib.h>
#include <string.h>

namespace {

// One slot per delimiter, one more when text follows the last delimiter (or
// there is none), and the closing null: never fewer than the components.
size_t slotCount(const char* path, char delimiter) {
    size_t delimiters = 0;
    const char* last = nullptr;
    for (const char* p = path; *p; ++p) {
        if (*p == delimiter) {
            ++delimiters;
            last = p;
        }
    }
    bool textAfterLast = !last || last[1] != '\0';
    return delimiters + (textAfterLast ? 1 : 0) + 1;
}

}  // namespace

char** get_path_elements(char* path, char delimiter) {
    if (!path) return nullptr;
    char** elements = static_cast<char**>(calloc(slotCount(path, delimiter), sizeof(char*)));
    if (!elements) return nullptr;
    const char delimiters[2] = {delimiter, '\0'};
    char* state = nullptr;
    size_t n = 0;
    for (char* part = strtok_r(path, delimiters, &state); part; part = strtok_r(nullptr, delimiters, &state)) {
        elements[n] = strdup(part);
        // A failed copy leaves the null that ends the array; copying on would
        // only leak what free_path_elements can no longer reach.
        if (!elements[n]) break;
        ++n;
    }
    return elements;
}

void free_path_elements(char** elements) {
    if (!elements) return;
    for (char** e = elements; *e; ++e) free(*e);
    free(elements);
}
