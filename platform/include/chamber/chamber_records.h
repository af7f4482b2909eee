// Host-only: what the host chamber functions were asked. Every process of the
// device appends to one record file ("/sim/log/chamber"), so a test sees the
// chambers a daemon in another process registered.
#pragma once

#include <string>
#include <vector>

struct ChamberDirectory {
    int id;  // the user or engine id it was registered under
    std::string path;
};

struct CategoryCall {
    int userId;
    std::string path;
    int result;  // what setCategory answered: 0, -2 (no package directory), -1
};

// Chambers registered now (added and not deleted since), oldest first; a
// path added again keeps its place and takes the newer id.
std::vector<ChamberDirectory> chamber_directories();
// Every setCategory call since the device was reset, oldest first.
std::vector<CategoryCall> chamber_category_calls();
// Forgets every chamber and call, for every process of the device.
void chamber_clear();
