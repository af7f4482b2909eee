// Shared between the sandbox's set-up and its device-tree reset.
#pragma once

namespace sim {

// Remembers the mounts that make up the booted device; a reset undoes every
// mount that is not among them.
void recordBaseMounts();

}  // namespace sim
