// Whether a package is installed, by the platform's package list.
#pragma once

// 1 when some line of "/data/system/packages.list" begins with exactly `name`
// as its first field, else 0 (also when the list cannot be read).
int is_valid_package(const char* name);
