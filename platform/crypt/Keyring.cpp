// The host kernel keeps no eCryptfs keyring for the device; installing it
// succeeds unless a failure is armed, so the start-up path runs as on a device.
#include <crypt/crypt.h>

#include "devprofile/DeviceProfile.h"

extern "C" int install_ecryptfs_keyring(void) {
    if (devprofile::shouldFail("install_ecryptfs_keyring")) return -1;
    return 0;
}
