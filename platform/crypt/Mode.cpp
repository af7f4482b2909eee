// The device's encryption mode, as the device profile describes it.
#include <crypt/crypt.h>

#include "devprofile/DeviceProfile.h"

extern "C" int isFBESupported(void) {
    if (devprofile::shouldFail("isFBESupported")) return 0;
    return devprofile::get("fbe", "1") == "1" ? 1 : 0;
}

extern "C" int isOdeInProgress(void) {
    if (devprofile::shouldFail("isOdeInProgress")) return 0;
    return devprofile::get("ode", "0") == "1" ? 1 : 0;
}

extern "C" int isLegacyEncryption(int userId) {
    if (devprofile::shouldFail("isLegacyEncryption")) return 0;
    return devprofile::userHasKind(userId, "legacy") ? 1 : 0;
}
