// Storage preparation failures are written twice: to the main log and as a
// stamped line of the daemon's own log, where a failed boot is read later.
#pragma once

namespace pelk {

// Logs text at ERROR (main buffer, tag "pelkd") and stamps it at level 1.
void reportPrepareFailure(const char* text);

}  // namespace pelk
