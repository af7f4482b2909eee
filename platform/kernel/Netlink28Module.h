// The module stand-in's bookkeeping of unit 28, shared by the seam (the
// daemon's side) and the endpoint (the module's side).
#pragma once

#include <string>

namespace hostkernel {

// True for a datagram of type 3001 (the daemon's registration).
bool isRegistration(const std::string& datagram);
// Records the registration: the pid at payload offset 12 and the socket it
// came from. False when the datagram is too short or the record cannot be
// written.
bool recordRegistration(const std::string& datagram, const char* port);

}  // namespace hostkernel
