// The private-mode key file: one password-wrapped key per user, created,
// checked, re-wrapped and deleted by the container encryption library. The
// manager only builds its path and hands the passwords on.
#define LOG_TAG "pelkd"

#include <crypt/crypt.h>
#include <log/log.h>
#include <stdio.h>

#include "base/Secret.h"
#include "manager/PrivatePartitionManager.h"

void PrivatePartitionManager::keyFilePath(int userId, char (&path)[KEY_PATH_SIZE]) {
    char id[32];
    snprintf(id, sizeof(id), "%d", userId);
    snprintf(path, sizeof(path), "/data/system/users/privatemode_edk_%s", id);
}

int PrivatePartitionManager::createKey(int userId, const char* password) {
    char path[KEY_PATH_SIZE];
    keyFilePath(userId, path);
    if (fips_create_edk(path, password) != 0) {
        SLOGE("create failed :: Error\n");
        return -1;
    }
    return 0;
}

int PrivatePartitionManager::verifyPassword(int userId, const char* password) {
    char path[KEY_PATH_SIZE];
    keyFilePath(userId, path);
    int rc = -1;
    if (password) {
        // The library gets a copy of its own, wiped once it is done.
        pelk::SecretString copy(password);
        rc = fips_verify_password(path, copy.c_str());
    }
    if (rc != 0) {
        SLOGE("Invalid\n");
        return -1;
    }
    return 0;
}

int PrivatePartitionManager::changePassword(int userId, const char* oldPassword, const char* newPassword) {
    char path[KEY_PATH_SIZE];
    keyFilePath(userId, path);
    int rc = fips_change_password(oldPassword, newPassword, path);
    // Both outcomes at ERROR so that they show on every build.
    SLOGE(rc != 0 ? "update:: Error\n" : "update:: Success\n");
    return rc;
}

int PrivatePartitionManager::removePassword(int userId) {
    char path[KEY_PATH_SIZE];
    keyFilePath(userId, path);
    // No look for the file first: a missing one is simply a failed delete,
    // which the caller is not told about.
    int rc = fips_delete_edk(path);
    SLOGD(rc != 0 ? "Delete:: Error\n" : "Delete:: Success\n");
    return 0;
}
