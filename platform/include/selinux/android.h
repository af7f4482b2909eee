// SELinux label restoring (host edition: platform/selinux records the calls).
#pragma once

#define SELINUX_ANDROID_RESTORECON_NOCHANGE 0x01
#define SELINUX_ANDROID_RESTORECON_VERBOSE 0x02
#define SELINUX_ANDROID_RESTORECON_RECURSE 0x04
#define SELINUX_ANDROID_RESTORECON_FORCE 0x08
#define SELINUX_ANDROID_RESTORECON_DATADATA 0x10
#define SELINUX_ANDROID_RESTORECON_SKIPCE 0x20
#define SELINUX_ANDROID_RESTORECON_CROSS_FILESYSTEMS 0x40
#define SELINUX_ANDROID_RESTORECON_SKIP_SEHASH 0x80

#ifdef __cplusplus
extern "C" {
#endif

// Restores the label of path for a user; 0 on success, negative on failure.
int selinux_android_restorecon_internal(const char* path, int userId, unsigned int flags);

#ifdef __cplusplus
}
#endif
