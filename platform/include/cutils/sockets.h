// Control sockets handed over by init (host edition: platform/cutils).
#pragma once

#define ANDROID_SOCKET_ENV_PREFIX "ANDROID_SOCKET_"
#define ANDROID_SOCKET_DIR "/dev/socket"

#ifdef __cplusplus
extern "C" {
#endif

// The descriptor init passed as ANDROID_SOCKET_<name>, or -1.
int android_get_control_socket(const char* name);

#ifdef __cplusplus
}
#endif
