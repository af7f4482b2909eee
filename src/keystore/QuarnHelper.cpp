#define LOG_TAG "pelkd.QuarnHelper"

#include "keystore/QuarnHelper.h"
#include <log/log.h>

#include <stdio.h>
#include <string.h>

#include <initializer_list>

#include "base/Secret.h"
#include "config/EngineConfig.h"
#include "keystore/Quarn3Helper.h"

namespace {
constexpr int kVersionUnselected = 99;
}

QuarnHelper::QuarnHelper(int user, int keyType) : userId(user), keyName{}, quarnVersion(kVersionUnselected) {
    bool named = true;
    if (keyType == kQuarnKeyCe) {
        snprintf(keyName, sizeof(keyName), "ecryptfsKey%d", userId);
    } else if (keyType == kQuarnKeyDe) {
        snprintf(keyName, sizeof(keyName), "ecryptfsKeyDe%d", userId);
    } else if (keyType == kQuarnKeySecureFs) {
        // The secure filesystem's key exists only where the device has one.
        secure_fs* fs = get_secure_fs();
        named = fs != nullptr;
        if (named) snprintf(keyName, sizeof(keyName), "%s", "eCryptfsKeySecFS");
        free_secure_fs(fs);
    } else {
        named = false;
    }
    if (!named) {
        ALOGE("Not defined FEKEK type!!");
        return;
    }
    setQuarnVersion();
}

int QuarnHelper::setQuarnVersion() {
    for (int version : {4, 3}) {
        quarnVersion = version;
        if (Quarn3Helper::isQuarn3KeyExist(version, keyName)) return 1;
    }
    quarnVersion = -1;
    return 0;
}

int QuarnHelper::getKeyFromQuarnKeyStore(unsigned char* out, int* len) {
    pelk::SecretBuffer<kQuarnKeyBufferSize> key;
    int keyLen = 0;
    int rc = Quarn3Helper::getKeyFromQuarn3(userId, quarnVersion, key.data(), &keyLen, keyName);
    if (rc == -1) return -1;
    memcpy(out, key.data(), keyLen);
    *len = keyLen;
    return rc;
}

bool QuarnHelper::isKeyExist() { return Quarn3Helper::isQuarn3KeyExist(quarnVersion, keyName); }
