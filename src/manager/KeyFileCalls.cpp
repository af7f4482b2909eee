#define LOG_TAG "pelkd"

#include "manager/KeyFileCalls.h"

#include <crypt/crypt.h>
#include <log/log.h>
#include <stdlib.h>
#include <string.h>

#include "base/Secret.h"

namespace pelk {
namespace {

// A private copy of a password, wiped before it is freed.
class PasswordCopy {
public:
    explicit PasswordCopy(const char* password) : copy_(password ? strdup(password) : nullptr) {}
    ~PasswordCopy() {
        if (copy_) {
            wipe(copy_, strlen(copy_));
            free(copy_);
        }
    }
    PasswordCopy(const PasswordCopy&) = delete;
    PasswordCopy& operator=(const PasswordCopy&) = delete;
    const char* get() const { return copy_; }

private:
    char* copy_;
};

}  // namespace

int createKeyFile(const char* path, const char* password) {
    if (fips_create_edk(path, password) != 0) {
        SLOGE("create failed :: Error\n");
        return -1;
    }
    return 0;
}

int verifyKeyFilePassword(const char* path, const char* password) {
    PasswordCopy copy(password);
    // No memory for the copy: the password cannot be checked.
    if (password && !copy.get()) return -1;
    return fips_verify_password(path, copy.get());
}

int changeKeyFilePassword(const char* path, const char* oldPassword, const char* newPassword) {
    int rc = fips_change_password(oldPassword, newPassword, path);
    // Both outcomes at ERROR so that they show on every build.
    SLOGE(rc != 0 ? "update:: Error\n" : "update:: Success\n");
    return rc;
}

void deleteKeyFile(const char* path) {
    int rc = fips_delete_edk(path);
    SLOGD(rc != 0 ? "Delete:: Error\n" : "Delete:: Success\n");
}

}  // namespace pelk
