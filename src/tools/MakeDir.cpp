// mkdir, with -p making each missing directory and giving it to an owner.
#define LOG_TAG "pelkd"

#include "tools/MakeDir.h"

#include <errno.h>
#include <log/log.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include "tools/Chown.h"

namespace {

constexpr size_t kPathSize = 4096;

int usage() {
    fprintf(stderr, "mkdir [OPTION] <target>\n");
    fprintf(stderr, "    --help           display usage and exit\n");
    fprintf(stderr, "    -p, --parents    create parent directories as needed\n");
    return -1;
}

bool isParentsOption(const char* word) { return strcmp(word, "-p") == 0 || strcmp(word, "--parents") == 0; }

int makeOne(const char* path) {
    int result = mkdir(path, 0777);
    if (result != 0) ALOGD("mkdir failed for %s, %s\n", path, strerror(errno));
    return result;
}

int giveToOwner(const char* path, const char* owner) {
    char chownWord[] = "chown";
    char ownerWord[32] = {};
    snprintf(ownerWord, sizeof(ownerWord), "%s", owner ? owner : "");
    char pathWord[kPathSize];
    snprintf(pathWord, sizeof(pathWord), "%s", path);
    char* argv[] = {chownWord, ownerWord, pathWord, nullptr};
    int result = chown_pelkd(3, argv, 1);
    ALOGD("chown_main %s rc=%d", ownerWord, result);
    if (result < 0) ALOGD("chown failed for %s, %s\n", path, strerror(errno));
    return result;
}

// Walks the target's components, making and handing over each missing one.
int makeParents(char* target, const char* owner) {
    char path[kPathSize] = {};
    if (target[0] == '/') path[0] = '/';
    char* state = nullptr;
    for (char* part = strtok_r(target, "/", &state); part; part = strtok_r(nullptr, "/", &state)) {
        size_t length = strlen(path);
        if (length + strlen(part) + 2 > kPathSize) {
            ALOGE("Invalid path specified: too long\n");
            return 1;
        }
        snprintf(path + length, kPathSize - length, "%s/", part);
        struct stat st;
        if (stat(path, &st) == 0) continue;
        int result = makeOne(path);
        if (result != 0) return result;
        result = giveToOwner(path, owner);
        if (result < 0) return result;
    }
    return 0;
}

}  // namespace

int mkdir_pelkd(int argc, char** argv, const char* owner) {
    if (argc < 2 || strcmp(argv[1], "--help") == 0) return usage();
    if (!isParentsOption(argv[1])) {
        for (int i = 1; i < argc; ++i) {
            int result = makeOne(argv[i]);
            if (result != 0) return result;
        }
        return 0;
    }
    if (argc < 3) return usage();
    for (int i = 2; i < argc; ++i) {
        int result = makeParents(argv[i], owner);
        if (result != 0) return result;
    }
    return 0;
}
