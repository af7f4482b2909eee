// Shared between the sandbox's set-up and its device-tree reset.
#pragma once

namespace sim {

// Remembers the mounts that make up the booted device; a reset undoes every
// mount that is not among them.
void recordBaseMounts();

// Binds the device's emulated storage ("/data/media") on "/storage/emulated"
// and on "emulated" in each runtime view. These mounts are not part of the
// booted device: a reset undoes them with the rest and makes them anew.
int mountStorageViews();

}  // namespace sim
