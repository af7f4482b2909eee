// Reading one key: open the key file, unwrap it with the connector, parse
// the blob. Every buffer that held secret bytes is a SecretBuffer, so it is
// wiped on whichever path leaves the function.
#define LOG_TAG "pelkd.QuarnHelper"

#include <errno.h>
#include <fcntl.h>
#include <log/log.h>
#include <string.h>
#include <unistd.h>

#include <cstdio>

#include "base/FileIo.h"
#include "base/Secret.h"
#include "base/UniqueFd.h"
#include "keystore/Quarn3Helper.h"

namespace {

const char kQuarn3Dir[] = "/data/misc/quarn_keystore/";
const char kQuarn4Dir[] = "/data/misc/fips_quarn_keystore/";
constexpr size_t kKeyPathSize = 1024;

}  // namespace

ssize_t Quarn3Helper::readFully(int fd, void* buf, size_t len) { return pelk::readFully(fd, buf, len); }

int Quarn3Helper::getKeyFromQ3KS(const char* dir, unsigned char* out, int* len, const char* keyName,
                                 const char* password, QuarnUnwrapFn unwrap) {
    size_t passwordLen = password ? strlen(password) : 0;
    if (TZ_KEYSTORE_initialize() != 0) {
        ALOGE("QUARN_ACCESS: QUARN is not valid.");
        return -1;
    }
    char path[kKeyPathSize];
    // A name the store cannot encrypt leaves the path empty; the open below
    // then reports it.
    get_keyname(keyName, kQuarnSystemUid, dir, path, sizeof(path));

    if (passwordLen > static_cast<size_t>(kQuarnPasswordMax)) {
        ALOGE("QUARN_ACCESS: password is too long (%d)", static_cast<int>(passwordLen));
        return -1;
    }
    pelk::SecretBuffer<kQuarnPasswordMax> pass;
    if (passwordLen) memcpy(pass.data(), password, passwordLen);

    // Logged at ERROR on purpose: the trace must show on every build.
    ALOGE("quarn3 opening file %s\n", path);
    pelk::UniqueFd fd(TEMP_FAILURE_RETRY(open(path, O_RDONLY | O_CLOEXEC)));
    if (!fd.ok()) {
        ALOGE("QUARN_ACCESS: couldn't read keyfile: %s", strerror(errno));
        return -1;
    }
    pelk::SecretBuffer<kQuarnKeyFileMax> wrapped;
    ssize_t wrappedLen = readFully(fd.get(), wrapped.data(), wrapped.size());
    fd.reset();
    if (wrappedLen <= 0) {
        ALOGE("QUARN_ACCESS: Could only read from key file %s", path);
        return -1;
    }

    pelk::SecretBuffer<kQuarnKeyFileMax> blob;
    int blobLen = 0;
    unwrap(pass.chars(), static_cast<int>(passwordLen), wrapped.data(), static_cast<int>(wrappedLen), blob.data(),
           &blobLen);
    ALOGD("QUARN_ACCESS: Unwrapped key len=%d", blobLen);
    if (blobLen <= 0 || blobLen > kQuarnKeyFileMax) {
        ALOGE("QUARN_ACCESS: Error fetching key, key_len = %d", blobLen);
        return -1;
    }

    pelk::SecretBuffer<kQuarnKeyBufferSize> key;
    int keyLen = 0;
    int parsed = getEnc(key.data(), blob.data(), blobLen, &keyLen);
    ALOGD("QUARN_ACCESS: Parsed key len=%d", keyLen);
    if (parsed != 0) {
        ALOGE("QUARN_ACCESS: Malformed key blob, key_len = %d", keyLen);
        return -1;
    }
    // The zero after the key goes out with it, and the length counts it:
    // callers use the key as a terminated string of that length.
    memcpy(out, key.data(), keyLen + 1);
    *len = keyLen + 1;
    return 0;
}

int Quarn3Helper::getKeyFromQuarn3(int userId, int version, unsigned char* out, int* len, const char* keyName) {
    // The user id's decimal text is the unwrap's password; it exists only
    // here, for the length of the call.
    pelk::SecretBuffer<32> password;
    snprintf(password.chars(), password.size(), "%d", userId);

    const char* dir = nullptr;
    QuarnUnwrapFn unwrap = nullptr;
    if (version == 3) {
        dir = kQuarn3Dir;
        unwrap = TZ_KEYSTORE_unwrap_key;
    } else if (version == 4) {
        dir = kQuarn4Dir;
        unwrap = TZ_KEYSTORE_fips_unwrap_key;
    } else {
        ALOGE("Quarn3Helper: Error[%d]", -1);
        return -1;
    }

    pelk::SecretBuffer<kQuarnKeyBufferSize> key;
    int keyLen = 0;
    int rc = getKeyFromQ3KS(dir, key.data(), &keyLen, keyName, password.chars(), unwrap);
    if (rc != 0) {
        ALOGE("Quarn3Helper: Error[%d]", rc);
        return -1;
    }
    ALOGD("Quarn3Helper: Selected Quarn Version = [%d]", version);
    memcpy(out, key.data(), keyLen);
    *len = keyLen;
    return version;
}
