#include <errno.h>
#include <fcntl.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "StoreKeys.h"
#include "base/FileIo.h"
#include "base/Secret.h"
#include "base/UniqueFd.h"

namespace tzks {
namespace {

const char kDeviceKeyPath[] = "/sim/tz_device_key";

bool readDeviceKey(unsigned char* key) {
    pelk::UniqueFd fd(open(kDeviceKeyPath, O_RDONLY | O_CLOEXEC));
    return fd.ok() && pelk::readFully(fd.get(), key, kStoreKeySize) == static_cast<ssize_t>(kStoreKeySize);
}

// Writes a fresh key beside the final name and links it into place, so a
// reader never sees a half-written key and the first creator wins a race.
bool createDeviceKey(unsigned char* key) {
    char tmp[] = "/sim/tz_device_key.XXXXXX";
    pelk::UniqueFd fd(mkstemp(tmp));  // mode 0600
    if (!fd.ok()) return false;
    bool written =
        RAND_bytes(key, kStoreKeySize) == 1 && pelk::writeFully(fd.get(), key, kStoreKeySize) && fsync(fd.get()) == 0;
    fd.reset();
    bool linked = written && link(tmp, kDeviceKeyPath) == 0;
    int linkErrno = errno;
    unlink(tmp);
    if (linked) return true;
    pelk::wipe(key, kStoreKeySize);
    return written && linkErrno == EEXIST && readDeviceKey(key);
}

}  // namespace

bool loadDeviceKey(unsigned char* key) {
    if (readDeviceKey(key)) return true;
    pelk::wipe(key, kStoreKeySize);
    if (access(kDeviceKeyPath, F_OK) == 0) return false;  // present but damaged: never replace it
    return createDeviceKey(key);
}

bool deriveStoreKey(const char* label, unsigned char* key) {
    pelk::SecretBuffer<kStoreKeySize> deviceKey;
    if (!loadDeviceKey(deviceKey.data())) return false;
    unsigned int len = 0;
    return HMAC(EVP_sha256(), deviceKey.data(), kStoreKeySize, reinterpret_cast<const unsigned char*>(label),
                strlen(label), key, &len) != nullptr &&
           len == kStoreKeySize;
}

}  // namespace tzks
