#include <crypt/crypt.h>
#include <devprofile/DeviceProfile.h>

#include "AtomicFile.h"

// Replaces the whole file at once: a crash leaves the old file or the new one.
extern "C" int ssWrite(const char* path, const void* data, int len) {
    if (devprofile::shouldFail("ssWrite")) return -1;
    if (len < 0) return -1;
    return pelkhost::replaceFileAtomically(path, data, static_cast<size_t>(len)) ? 0 : -1;
}
