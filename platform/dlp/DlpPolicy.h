// The policy values the host DLP library's functions share.
#pragma once

namespace hostdlp {

// Lifetime of a DLP file of the user, in seconds (see DlpPolicy.cpp).
int lifetimeOf(int userId);

}  // namespace hostdlp
