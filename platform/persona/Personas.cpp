// Container users and their kinds, as the device profile lists them.
#include <persona/persona.h>

#include "devprofile/DeviceProfile.h"

extern "C" int scanZanthPersonas(int* ids, int maxCount) {
    if (devprofile::shouldFail("scanZanthPersonas")) return -1;
    if (!ids || maxCount < 1) return 0;
    int count = 0;
    for (int user : devprofile::containerUsers()) {
        if (count >= maxCount) break;
        ids[count++] = user;
    }
    return count;
}

extern "C" int isZanthUser(int userId) {
    if (devprofile::shouldFail("isZanthUser")) return 0;
    return devprofile::isContainerUser(userId) ? 1 : 0;
}

extern "C" int isCLContainer(int userId) {
    if (devprofile::shouldFail("isCLContainer")) return 0;
    return devprofile::userHasKind(userId, "cl") ? 1 : 0;
}

extern "C" int isStrond(int userId) {
    if (devprofile::shouldFail("isStrond")) return 0;
    return devprofile::userHasKind(userId, "strond") ? 1 : 0;
}
