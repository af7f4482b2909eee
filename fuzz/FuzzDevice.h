// The simulated device as the fuzz targets that touch files, mounts or the
// daemon's state need it: entered once, with the host's trees out of reach
// of whatever an input makes the engine do, and put back in order between
// inputs.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace fuzzdevice {

// Enters the device sandbox (once; later calls answer at once) and makes it
// fit for fuzzing: the log echo silenced (every line is still recorded), the
// engine's sleeps made short, and the source and build trees read-only
// except the working folder, where libFuzzer keeps its corpus and writes
// what it finds. 0, or -1 with a message on stderr.
int enter();

// Brings the device back to its clean state (every other process of the
// sandbox killed, every mount undone, the device folders laid out again)
// and fit for fuzzing again, as enter() left it. False when that failed.
bool reset();

// Resets the device when the last input changed the mount table, and after
// every `every` inputs in any case (for the files inputs made or removed).
// True when it did; a reset that fails aborts the run.
bool resetWhenDue(int every);

// Empties the device log after every 256 inputs, so that reading it (as
// the engine and the checks do) stays cheap over a long run.
void clearLogWhenDue();

// Stops libxml2 printing every parse error of the inputs on stderr (the
// readers log their own line for a file they cannot read).
void silenceXmlErrors();

// Writes bytes as the whole content of a file. False when it cannot.
bool writeFile(const char* path, const uint8_t* data, size_t size);

}  // namespace fuzzdevice
