// One input as the engine files under "/data/system/users": the bytes up to
// the first NUL are the engine list file, the bytes after it the file of the
// engine with id 5 (without a NUL, the same bytes are both). Both readers
// run on them, the per-user one and the list one that loads every engine
// the list names, and everything they hand back is freed as the daemon
// frees it.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "FuzzCheck.h"
#include "FuzzDevice.h"
#include "config/EngineConfig.h"

namespace {

const int kEngineId = 5;

const char kTarget[] = "fuzz_engine_xml";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const uint8_t* nul = static_cast<const uint8_t*>(memchr(data, 0, size));
    const uint8_t* user = nul ? nul + 1 : data;
    size_t listSize = nul ? static_cast<size_t>(nul - data) : size;
    size_t userSize = nul ? size - listSize - 1 : size;

    char listPath[kEnginePathSize], userPath[kEnginePathSize];
    get_engine_list_xml_path(listPath);
    get_engine_xml_path(kEngineId, userPath);
    if (!fuzzdevice::writeFile(listPath, data, listSize) || !fuzzdevice::writeFile(userPath, user, userSize))
        fuzzcheck::fail(kTarget, "cannot write the engine files");

    engine* one = get_engine(kEngineId);
    if (one && strnlen(one->alias, sizeof(one->alias)) == sizeof(one->alias))
        fuzzcheck::fail(kTarget, "the alias is not terminated");
    free(one);
    engine_list* list = get_engines();
    if (list && (list->count < 0 || list->count > kEngineListCapacity))
        fuzzcheck::fail(kTarget, "the list count is out of range");
    if (list) free_engines(list);
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzdevice::silenceXmlErrors();
    if (fuzzdevice::enter() != 0) return 1;
    char path[kEnginePathSize];
    snprintf(path, sizeof(path), "/data/system/users/%d", kEngineId);
    mkdir(path, 0700);
    return 0;
}
