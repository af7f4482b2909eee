// The private-mode key file: one password-wrapped key per user, created,
// checked, re-wrapped and deleted by the container encryption library. The
// manager only builds its path and hands the passwords on.
#define LOG_TAG "pelkd"

#include <crypt/crypt.h>
#include <log/log.h>
#include <stdio.h>

#include "manager/KeyFileCalls.h"
#include "manager/PrivatePartitionManager.h"

void PrivatePartitionManager::keyFilePath(int userId, char (&path)[KEY_PATH_SIZE]) {
    char id[32];
    snprintf(id, sizeof(id), "%d", userId);
    snprintf(path, sizeof(path), "/data/system/users/privatemode_edk_%s", id);
}

int PrivatePartitionManager::createKey(int userId, const char* password) {
    char path[KEY_PATH_SIZE];
    keyFilePath(userId, path);
    if (pelk::createKeyFile(path, password) != 0) return -1;
    return 0;
}

int PrivatePartitionManager::verifyPassword(int userId, const char* password) {
    char path[KEY_PATH_SIZE];
    keyFilePath(userId, path);
    if (pelk::verifyKeyFilePassword(path, password) != 0) {
        SLOGE("Invalid\n");
        return -1;
    }
    return 0;
}

int PrivatePartitionManager::changePassword(int userId, const char* oldPassword, const char* newPassword) {
    char path[KEY_PATH_SIZE];
    keyFilePath(userId, path);
    return pelk::changeKeyFilePassword(path, oldPassword, newPassword);
}

int PrivatePartitionManager::removePassword(int userId) {
    char path[KEY_PATH_SIZE];
    keyFilePath(userId, path);
    // No look for the file first: a missing one is simply a failed delete,
    // which the caller is not told about.
    pelk::deleteKeyFile(path);
    return 0;
}
