// The mount-table question every mount-state query asks.
#include "process/ProcFs.h"

namespace pelk {

bool mountTableHas(FILE* table, const char* mountPoint) {
    return forEachMountLine(table, [mountPoint](const char* line) {
        char device[256] = {0};
        char point[256] = {0};
        char type[256] = {0};
        if (sscanf(line, "%255s %255s %255s\n", device, point, type) < 2) return false;
        return strcmp(point, mountPoint) == 0;
    });
}

}  // namespace pelk
