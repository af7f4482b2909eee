// The DLP policy of the simulated device, as an administrator would push it:
// read from the device profile on every call, so a test or a person at the
// device shell changes it under a running daemon.
//   dlp.audit_state=MASK          the audit bit mask (default 0: no audit lines)
//   dlp.expiry_after=SECONDS      lifetime of a DLP file (default one day)
//   dlp.expiry_after.<user>=SECONDS   the same for one user
#include <dlp/dlp.h>

#include <climits>
#include <string>

#include "DlpCallLog.h"
#include "DlpPolicy.h"
#include "devprofile/DeviceProfile.h"

namespace {

constexpr long kDefaultLifetime = 24 * 60 * 60;

int clampToInt(long value) {
    if (value > INT_MAX) return INT_MAX;
    if (value < INT_MIN) return INT_MIN;
    return static_cast<int>(value);
}

}  // namespace

namespace hostdlp {

int lifetimeOf(int userId) {
    long all = devprofile::getInt("dlp.expiry_after", kDefaultLifetime);
    return clampToInt(devprofile::getInt("dlp.expiry_after." + std::to_string(userId), all));
}

}  // namespace hostdlp

extern "C" int get_expiryAfter_time(int userId) {
    int lifetime = hostdlp::lifetimeOf(userId);
    DlpCall call;
    call.function = "get_expiryAfter_time";
    call.userId = userId;
    call.result = lifetime;
    hostdlp::recordCall(call);
    return lifetime;
}

extern "C" int getDLPAuditLogState(void) { return clampToInt(devprofile::getInt("dlp.audit_state", 0)); }
