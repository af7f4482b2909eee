// One input as the secure-filesystem file under "/data/system/users", read
// by the daemon's reader and freed as the daemon frees it.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "FuzzDevice.h"
#include "config/EngineConfig.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    char path[kEnginePathSize];
    get_secure_fs_xml_path(path);
    if (!fuzzdevice::writeFile(path, data, size)) {
        fprintf(stderr, "fuzz_secure_fs_xml: cannot write %s\n", path);
        abort();
    }
    secure_fs* fs = get_secure_fs();
    if (fs && strnlen(fs->quarnVersion, sizeof(fs->quarnVersion)) == sizeof(fs->quarnVersion)) {
        fprintf(stderr, "fuzz_secure_fs_xml: the version text is not terminated\n");
        abort();
    }
    if (fs) free_secure_fs(fs);
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzdevice::silenceXmlErrors();
    return fuzzdevice::enter() == 0 ? 0 : 1;
}
