// Host builds link with --wrap=sleep and --wrap=usleep: the engine keeps
// calling the plain sleeps with the device's durations, and the profile's
// time scale shrinks them so that tests of long waits run in milliseconds.
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <new>

#include "devprofile/DeviceProfile.h"

namespace {

using Counter = std::atomic<unsigned long long>;
static_assert(Counter::is_always_lock_free, "the counter is shared with forked children");

// The count lives in a shared page once someone asked for it, so that the
// sleeps of forked workers add to it too; until then nobody reads it.
std::atomic<Counter*> sCounter{nullptr};

void countSleep(double microseconds) {
    Counter* c = sCounter.load(std::memory_order_relaxed);
    if (c) c->fetch_add(static_cast<unsigned long long>(microseconds), std::memory_order_relaxed);
}

}  // namespace

unsigned long long devprofile::requestedSleepMicros() {
    static Counter* counter = [] {
        void* page = mmap(nullptr, sizeof(Counter), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        static Counter local{0};  // no shared page: this process's own sleeps only
        Counter* c = page == MAP_FAILED ? &local : new (page) Counter(0);
        sCounter.store(c, std::memory_order_relaxed);
        return c;
    }();
    return counter->load(std::memory_order_relaxed);
}

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
    countSleep(static_cast<double>(seconds) * 1e6);
    if (devprofile::timeScale() == 1.0) return __real_sleep(seconds);
    scaledNap(static_cast<double>(seconds) * 1e6);
    return 0;
}

int __wrap_usleep(useconds_t usec) {
    countSleep(static_cast<double>(usec));
    if (devprofile::timeScale() == 1.0) return __real_usleep(usec);
    return scaledNap(static_cast<double>(usec));
}
}
