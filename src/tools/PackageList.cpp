#include "tools/PackageList.h"

#include <string.h>

#include "base/UniqueHandle.h"

namespace {

const char kPackageList[] = "/data/system/packages.list";
constexpr int kLineSize = 1000;
constexpr int kMaxName = kLineSize - 1;

// The first field of a line: up to the first NUL, newline or blank.
void firstField(const char* line, char* name) {
    for (int i = 0; i < kMaxName; ++i) {
        char c = line[i];
        if (c == '\0' || c == '\n' || c == ' ' || c == '\t') return;
        name[i] = c;
    }
}

}  // namespace

int is_valid_package(const char* name) {
    if (!name) return 0;
    pelk::UniqueFile list(fopen(kPackageList, "re"));
    if (!list) return 0;
    char line[kLineSize];
    while (fgets(line, sizeof(line), list.get())) {
        char field[kLineSize + 1] = {};
        firstField(line, field);
        if (strcmp(field, name) == 0) return 1;
    }
    return 0;
}
