// One input as a key file of the device's key store, read by the daemon's
// key store reader twice: once through the real unwrap (which must refuse
// anything the store did not wrap), once through an unwrap that hands the
// bytes on as they are, so that the blob parser sees the input itself. A
// key it accepts must lie within the blob and come back with its
// terminating zero.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "FuzzDevice.h"
#include "keystore/Quarn3Helper.h"

namespace {

const char kKeyName[] = "fuzz_key";
const int kStoreVersion = 4;

char gStoreDir[256];
std::string gKeyFile;

int unwrapAsIs(const char*, int, const uint8_t* wrapped, int wrappedLen, uint8_t* out, int* outLen) {
    memcpy(out, wrapped, static_cast<size_t>(wrappedLen));
    *outLen = wrappedLen;
    return 0;
}

const char kTarget[] = "fuzz_key_blob";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!fuzzdevice::writeFile(gKeyFile.c_str(), data, size))
        fuzzcheck::fail(kTarget, "cannot write the key file", size);
    std::vector<unsigned char> out(kQuarnKeyBufferSize);
    int len = 0;
    Quarn3Helper::getKeyFromQ3KS(gStoreDir, out.data(), &len, kKeyName, "10", TZ_KEYSTORE_fips_unwrap_key);

    len = -1;
    if (Quarn3Helper::getKeyFromQ3KS(gStoreDir, out.data(), &len, kKeyName, nullptr, unwrapAsIs) != 0) return 0;
    size_t blobSize = size < static_cast<size_t>(kQuarnKeyFileMax) ? size : kQuarnKeyFileMax;
    if (len < 2 || static_cast<size_t>(len - 1) + 4 > blobSize)
        fuzzcheck::fail(kTarget, "an accepted key does not lie within the blob", size);
    if (out[len - 1] != 0) fuzzcheck::fail(kTarget, "an accepted key has no terminating zero", size);
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (fuzzdevice::enter() != 0 || Quarn3Helper::getQ3KSPath(kStoreVersion, gStoreDir, sizeof(gStoreDir)) != 0)
        return 1;
    mkdir((std::string(gStoreDir) + "user_0").c_str(), 0700);
    char path[1024];
    if (Quarn3Helper::get_keyname(kKeyName, kQuarnSystemUid, gStoreDir, path, sizeof(path)) != 0) return 1;
    gKeyFile = path;
    return 0;
}
