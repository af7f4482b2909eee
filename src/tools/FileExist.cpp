#define LOG_TAG "pelkd"

#include "tools/FileExist.h"

#include <errno.h>
#include <log/log.h>
#include <string.h>
#include <sys/stat.h>

int isFileExist(const char* path) {
    struct stat st;
    if (stat(path, &st) == 0) return 1;
    SLOGE("%s : %s error, %s\n", "isFileExist", path, strerror(errno));
    return 0;
}
