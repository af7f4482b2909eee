// Host builds link with --wrap=sleep and --wrap=usleep: the engine keeps
// calling the plain sleeps with the device's durations, and the profile's
// time scale shrinks them so that tests of long waits run in milliseconds.
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "devprofile/DeviceProfile.h"

extern "C" {
unsigned int __real_sleep(unsigned int seconds);
int __real_usleep(useconds_t usec);

static int scaledNap(double microseconds) {
    double scaled = microseconds * devprofile::timeScale();
    timespec ts;
    ts.tv_sec = static_cast<time_t>(scaled / 1e6);
    ts.tv_nsec = static_cast<long>((scaled - static_cast<double>(ts.tv_sec) * 1e6) * 1e3);
    while (nanosleep(&ts, &ts) != 0) {
        if (errno != EINTR) return -1;
    }
    return 0;
}

unsigned int __wrap_sleep(unsigned int seconds) {
    if (devprofile::timeScale() == 1.0) return __real_sleep(seconds);
    scaledNap(static_cast<double>(seconds) * 1e6);
    return 0;
}

int __wrap_usleep(useconds_t usec) {
    if (devprofile::timeScale() == 1.0) return __real_usleep(usec);
    return scaledNap(static_cast<double>(usec));
}
}
