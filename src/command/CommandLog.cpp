#define LOG_TAG "pelkd"

#include <log/log.h>

#include <string.h>

#include "command/CommandLog.h"

namespace pelk {

void logCommandLine(int argc, char** argv) {
    char line[DUMP_ARGS_SIZE] = {0};
    size_t used = 0;
    for (int i = 0; i < argc; ++i) {
        size_t len = strlen(argv[i]);
        if (used + len + 1 >= DUMP_ARGS_SIZE - 1) continue;
        memcpy(line + used, argv[i], len);
        used += len;
        if (i != argc - 1) line[used++] = ' ';
    }
    SLOGD("\n\nCMD > %s \n", line);
}

}  // namespace pelk
