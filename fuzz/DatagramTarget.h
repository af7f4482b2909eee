// The fuzz target for the event thread's datagram path: one input is one
// datagram as the kernel would send it on unit 28.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace fuzzdatagram {

// Boots what the target needs (run once, inside the device): an eCryptfs
// mount with partition id 3 holding a few files, and a registered handler.
bool setUp();
// Well-formed requests for every opcode, on real inodes, to start from.
std::vector<std::string> seeds();
// Counts of what the inputs so far did.
struct Tally {
    long inputs = 0;
    long replied = 0;
    long rejected = 0;
};
const Tally& tally();

}  // namespace fuzzdatagram

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
