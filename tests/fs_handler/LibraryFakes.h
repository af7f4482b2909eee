// The DLP and sensitive-data calls of the event side, caught at link time
// (this binary wraps them) so tests see exactly which were made, with what,
// and can script what they answer.
#pragma once

#include <string>
#include <vector>

namespace fakes {

struct Library {
    std::vector<std::string> calls;  // e.g. "putPendingInodeValue 42 7"
    int auditState = 0;
    bool putPendingResult = true;
    int pidByInode = 0;
    bool clearResult = true;
    int setExpiryResult = 0;
    int expiryAfter = 3600;
    int dlpExpiryResult = 0;
    int dlpExpiryErrno = 0;
    long lastExpiry = 0;
};

// Reset by each test's fixture.
Library& library();
void reset();
// The calls whose text starts with prefix.
std::vector<std::string> callsOf(const std::string& prefix);

}  // namespace fakes
