// Mounting the device-wide sensitive-data areas of user 0: the encrypted
// user area 'h' and the encrypted media 'i'.
#define LOG_TAG "pelkd"

#include <log/log.h>

#include <crypt/crypt.h>

#include "manager/Pelk.h"
#include "partition/Partition.h"

int Pelk::mountStorageMirel(const char* password) {
    if (isFBESupported()) {
        // With file-based encryption only the media view is made; no key is
        // involved and 'h' stays as it is.
        Partition media(0, PARTITION_MIREL_MEDIA, nullptr, false);
        if (media.isMounted()) return 0;
        return mountSdcardfs(&media);
    }
    for (int32_t type : Partition::LIST_MIREL_STORAGE) {
        Partition area(0, type, nullptr, true);
        if (ecryptfsMount(&area, password, true) != 0) {
            SLOGE("Mount MIREL ERROR");
            return -1;
        }
    }
    return 0;
}
