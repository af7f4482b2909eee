// Host-only: the commands handed to the host DLP library. Every process of
// the device appends to one record file ("/sim/log/dlp_commands"), so a test
// sees what a daemon in another process forwarded.
#pragma once

#include <string>
#include <vector>

// Every accepted command since the device was reset (or the last clear),
// oldest first, as its words.
std::vector<std::vector<std::string>> dlp_commands();
// Forgets the commands so far, for every process of the device.
void dlp_commands_clear();
