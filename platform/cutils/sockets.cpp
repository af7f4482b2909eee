// Control sockets handed over by init: the descriptor number is passed in the
// environment as ANDROID_SOCKET_<name>.
#include <cutils/sockets.h>

#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

extern "C" int android_get_control_socket(const char* name) {
    if (name == nullptr || *name == '\0') {
        errno = EINVAL;
        return -1;
    }
    char key[128];
    int n = snprintf(key, sizeof(key), "%s%s", ANDROID_SOCKET_ENV_PREFIX, name);
    if (n < 0 || static_cast<size_t>(n) >= sizeof(key)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    // Environment names carry no punctuation: init writes those as '_'.
    for (char* p = key + sizeof(ANDROID_SOCKET_ENV_PREFIX) - 1; *p; ++p) {
        if (!isalnum(static_cast<unsigned char>(*p))) *p = '_';
    }

    const char* value = getenv(key);
    if (value == nullptr || *value == '\0') {
        errno = ENOENT;
        return -1;
    }
    char* end = nullptr;
    errno = 0;
    long fd = strtol(value, &end, 10);
    if (errno != 0 || *end != '\0' || fd < 0 || fd > INT_MAX) {
        errno = EINVAL;
        return -1;
    }
    // A number that names no open socket is of no use to a listener.
    struct stat st;
    if (fstat(static_cast<int>(fd), &st) != 0) return -1;
    if (!S_ISSOCK(st.st_mode)) {
        errno = ENOTSOCK;
        return -1;
    }
    return static_cast<int>(fd);
}
