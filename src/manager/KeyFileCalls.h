// The password operations on a password-wrapped key file that the container
// EDK and the private-mode key file share: the manager builds the path, the
// container encryption library does the work, and these log its outcome.
#pragma once

namespace pelk {

// Makes the key file at path wrapped under password; logs "create failed ::
// Error\n" and answers -1 when the library fails, else 0.
int createKeyFile(const char* path, const char* password);
// The library's answer to whether password opens the key file at path (0
// when it does). The library is handed a private copy of the password (null
// stays null), wiped as soon as it answers.
int verifyKeyFilePassword(const char* path, const char* password);
// Re-wraps the key file under newPassword; logs "update:: Error\n" or
// "update:: Success\n" at ERROR and answers the library's result.
int changeKeyFilePassword(const char* path, const char* oldPassword, const char* newPassword);
// Deletes the key file; logs "Delete:: Error\n" or "Delete:: Success\n" at
// DEBUG. The outcome is not handed back: callers go on either way.
void deleteKeyFile(const char* path);

}  // namespace pelk
