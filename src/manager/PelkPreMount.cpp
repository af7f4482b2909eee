// Boot pre-mount: before anyone unlocks a container, mount what keys that
// need no password allow (every container's DE storage, CE storage too on
// devices without file-based encryption, and user 0's secure filesystem).
// Progress goes to the daemon status (0 running, 1 success, 2 failure) and
// every persona step also into the daemon log.
#define LOG_TAG "pelkd"

#include <log/log.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <crypt/crypt.h>
#include <persona/persona.h>

#include "base/Secret.h"
#include "keystore/QuarnHelper.h"
#include "log/PelkLog.h"
#include "manager/Pelk.h"
#include "partition/Partition.h"

namespace {

const int kMaxPersonas = 32;
const int kKeySize = 33;
// The media view is looked for this many times, a second apart.
const int kMediaViewChecks = 6;
const char kMediaView[] = "/mnt/shell/enc_media";

enum DaemonStatus { STATUS_RUNNING = 0, STATUS_SUCCESS = 1, STATUS_FAILED = 2 };

// A persona step's line: in the system log at prio and stamped into the
// daemon log at level.
void logAndStamp(int prio, int level, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
void logAndStamp(int prio, int level, const char* fmt, ...) {
    char text[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof(text), fmt, ap);
    va_end(ap);
    __android_log_buf_print(LOG_ID_SYSTEM, prio, LOG_TAG, "%s", text);
    PelkLog::Instance()->stampPelkLog(level, "%s", text);
}

void logProgress(const char* text) { logAndStamp(ANDROID_LOG_DEBUG, PelkLog::LEVEL_NORMAL, "%s", text); }
void logFailure(const char* text) { logAndStamp(ANDROID_LOG_ERROR, PelkLog::LEVEL_ERROR, "%s", text); }

bool edekExists(int userId) {
    char path[512];
    snprintf(path, sizeof(path), "/data/system/users/%d/zanth_edk_de_%d", userId, userId);
    struct stat st;
    return stat(path, &st) == 0;
}

}  // namespace

int Pelk::preMount() {
    int users[kMaxPersonas] = {0};
    int count = scanZanthPersonas(users, kMaxPersonas);
    SLOGD("available Personas : %d\n", count);
    if (count < 1) return 0;
    if (count > kMaxPersonas) count = kMaxPersonas;
    PelkLog* log = PelkLog::Instance();
    log->setDaemonStatus(STATUS_RUNNING);

    int withKey[kMaxPersonas] = {0};
    int keyed = 0;
    for (int i = 0; i < count; ++i) {
        {
            QuarnHelper ceKey(users[i], kQuarnKeyCe);
            if (ceKey.isKeyExist()) {
                withKey[keyed++] = users[i];
            } else {
                logAndStamp(ANDROID_LOG_DEBUG, PelkLog::LEVEL_NORMAL,
                            "Skip Pre-mount for user %d (No CE key in Quarnkeystore!!)", users[i]);
            }
        }
        // Every container's SD card gets its permissions, keyed or not.
        Partition sdcard(users[i], PARTITION_CE_SDCARD, nullptr, false);
        sdcard.arrangeStoragePermission();
    }
    if (keyed > 0) {
        bool deFailed = preMountPersonaDeInternal(withKey, keyed) != 0;
        if (deFailed) SLOGE("preMountPersonaDeInternal : Failed\n");
        // CE goes ahead whatever became of DE: one does not need the other
        // to be reported.
        if (isFBESupported() == 0 && preMountPersonaInternal(withKey, keyed) != 0) {
            SLOGE("preMountPersonaInternal : Failed\n");
            log->setDaemonStatus(STATUS_FAILED);
            return -1;
        }
        if (deFailed) {
            log->setDaemonStatus(STATUS_FAILED);
            return -1;
        }
        logProgress("Pre-mount Success!!");
    }
    log->setDaemonStatus(STATUS_SUCCESS);
    return 0;
}

int Pelk::preMountPersonaDeInternal(int* userIds, int count) {
    logProgress("Start pre-mount DE storage..");
    int result = 0;
    for (int i = 0; i < count; ++i) {
        pelk::SecretBuffer<kKeySize> key;
        if (!edekExists(userIds[i])) {
            // A first boot of the container: its DE directories and key are made now.
            if (prepareStorageDe(userIds[i], key.chars()) != 0) {
                logFailure("Pre-Mount ERROR : prepareStorageDe failed\n");
                result = -1;
                continue;
            }
        } else if (getDEKeyFromEDEK(userIds[i], key.chars(), false) != 0) {
            logFailure("Prepare DE ERROR : Failed to get fekek_de from edek!!\n");
            result = -1;
            continue;
        }
        if (mountStorageDe(userIds[i], key.chars(), true, true) != 0) {
            logFailure("Pre-Mount ERROR : Failed to mount DE storage!!\n");
            result = -1;
        }
    }
    return result;
}

int Pelk::preMountPersonaInternal(int* userIds, int count) {
    logProgress("Start pre-mount CE storage..");
    int result = 0;
    for (int i = 0; i < count; ++i) {
        logAndStamp(ANDROID_LOG_DEBUG, PelkLog::LEVEL_NORMAL, "Persona found >> %d, Trying Pre-Mount..", userIds[i]);
        if (prepareStorageCe(userIds[i]) != 0) {
            logFailure("Pre-Mount ERROR : prepareStorageCe failed\n");
            result = -1;
            continue;
        }
        pelk::SecretBuffer<kKeySize> key;
        bool isRaw = false;
        if (getFEKEK(userIds[i], key.chars(), &isRaw, kQuarnKeyCe) == -1) {
            logFailure("Pre-Mount ERROR : QuarnHelper failed\n");
            result = -1;
            continue;
        }
        if (mountStorageCe(userIds[i], key.chars(), isRaw, true, false) != 0) result = -1;
    }
    return result;
}

int Pelk::preMountSecureFileSystem(engine_list*) {
    bool ready = false;
    for (int tries = 0; tries < kMediaViewChecks; ++tries) {
        if (tries > 0) sleep(1);
        if (isMountedInternal(nullptr, kMediaView) == 1) {
            SLOGD("Pre-Mount : Sdcardfs is Ready.. Tried: %d\n", tries);
            ready = true;
            break;
        }
    }
    if (!ready) sleep(1);
    if (mPreMountMark == 0) mPreMountMark = 6;

    pelk::SecretBuffer<kKeySize> key;
    bool isRaw = false;
    if (getFEKEK(0, key.chars(), &isRaw, kQuarnKeySecureFs) == -1) {
        SLOGE("Pre-Mount ERROR : QuarnHelper failed\n");
        return -1;
    }
    Partition user(0, PARTITION_MIREL_USER, nullptr, true);
    Partition media(0, PARTITION_MIREL_MEDIA, nullptr, true);
    SLOGD("Trying Pre-Mount..");
    if (ecryptfsMount(&user, key.chars(), isRaw) != 0) {
        SLOGE("Pre-Mount ERROR [%s]", user.mMntPath);
        unmount(&user);
        if (ready) unmount(&media);
        return -1;
    }
    if (!ready) {
        // Kept lenient: the user area stays mounted and the media area is
        // left for later.
        SLOGE("Pre-Mount ERROR: Sdcardfs is not ready");
        return 0;
    }
    if (ecryptfsMount(&media, key.chars(), isRaw) != 0) {
        SLOGE("Pre-Mount ERROR [%s]", media.mMntPath);
        unmount(&user);
        unmount(&media);
        return -1;
    }
    return 0;
}
