// The checks both mount sequences (the container areas and the private-mode
// store) make before anything is asked of the encryption library.
#pragma once

class Partition;

namespace pelk {

enum class MountPreCheck {
    Refused,         // no area, or an area without paths: the mount answers -1
    MountedAlready,  // the mount answers 0 without a look at the secret
    GoOn,
};

// A null area logs "given partition obj is NULL" at ERROR; a mounted one logs
// "partition is already mounted" at DEBUG. An area without paths is refused
// too (logged "given partition obj has no path"): the library would take
// the empty text for a directory of its own choosing.
MountPreCheck checkAreaToMount(Partition* partition);

}  // namespace pelk
