// The simulated device's profile: the one mechanism through which tests, the
// simulator and a person at the device shell steer the host editions.
//
// It is a small text file, "/sim/profile" inside the device sandbox (the
// environment variable PELK_PROFILE names another one), with one
// "key=value" per line. Every process reads it afresh when it changes, so a
// value set by a test is seen at once by a daemon running in another process.
// Writers take an exclusive lock on "<profile>.lock", replace the file
// atomically, so concurrent writers never lose each other's changes, and
// then count the change in "<profile>.changes", which every reader maps: a
// lookup in an unchanged profile costs no system call.
//
// Keys:
//   fbe=0|1              file-based encryption (isFBESupported); default 1
//   ode=0|1              on-device encryption in progress (isOdeInProgress)
//   user.<id>=KINDS      <id> is a container user; KINDS is a comma list of
//                        "zanth" (always implied), "legacy" (legacy
//                        encryption), "cl" (CL container), "strond" (secure
//                        folder). Users are listed in ascending order.
//   prop.<name>=VALUE    a system property, e.g. prop.ro.build.PDA=G960FXXU
//   fail.<function>=N    the next N calls of that host-edition function fail
//                        (as the function's own failure result)
//   time.scale=F         factor applied to sleep() and usleep() of the engine
//                        in host builds (default 1; 0.001 makes 30 s be 30 ms)
//   dlp.audit_state=MASK the DLP audit bit mask (getDLPAuditLogState; default 0)
//   dlp.expiry_after=S   lifetime of a DLP file in seconds (get_expiryAfter_time;
//                        default 86400); dlp.expiry_after.<id>=S for one user
//
// The command-line tool "pelk-profile" (on the device's PATH) reads and
// writes the same keys.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace devprofile {

// Path of the profile file in use.
std::string path();

// Whole profile as a map (empty when the file does not exist).
std::map<std::string, std::string> snapshot();

std::string get(const std::string& key, const std::string& fallback = "");
long getInt(const std::string& key, long fallback);

// Sets a key; an empty value removes it. Answers false when the file cannot
// be written.
bool set(const std::string& key, const std::string& value);
bool erase(const std::string& key);
// Replaces the whole profile with the given keys.
bool replace(const std::map<std::string, std::string>& values);
// This process removed the profile and its change count with the device's
// files: the next lookup maps the new count and reads the file again.
void forgetCachedCopy();

// Arms "fail the next N calls of FUNCTION".
bool failNext(const std::string& function, int times = 1);
// Called first thing by every host-edition function: true when this call
// must fail. Consumes one armed failure.
bool shouldFail(const char* function);

double timeScale();
// Microseconds of sleep() and usleep() the engine asked for, before the
// time scale, since the first call of this function: in this process and in
// every process it forked after that call (benchmarks report what the
// deliberate waits would cost at scale 1).
unsigned long long requestedSleepMicros();

// Container users, ascending, and their kinds.
std::vector<int> containerUsers();
bool userHasKind(int user, const char* kind);
bool isContainerUser(int user);

}  // namespace devprofile
