// Chamber functions (closed; host edition: platform/chamber).
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Registers path as a chamber of the given engine or user id; 0 on success.
int add_chamber_directory(int id, const char* path);
// Forgets the chamber at path; 0 on success.
int del_chamber_directory(const char* path);
// Labels a package directory for a user: 0 on success, -2 when the path is
// no package directory or has no information, other values on failure.
int setCategory(int user, const char* path);

#ifdef __cplusplus
}
#endif
