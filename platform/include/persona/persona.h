// Persona query library (closed; host edition: platform/persona, answers from
// the device profile's user.<id> keys).
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Writes up to maxCount container user ids, ascending, into ids; answers
// their count, negative when the list cannot be had.
int scanZanthPersonas(int* ids, int maxCount);
// Non-zero when userId is a container user.
int isZanthUser(int userId);
// Non-zero for a CL container (needs no process remount).
int isCLContainer(int userId);
// Non-zero for the secure-folder kind of container.
int isStrond(int userId);
// Non-zero when path is exactly a mount point in the caller's own mount
// namespace. The path is compared as given, not resolved: "/data/x/" is not
// the mount point "/data/x".
int isMountedPath(const char* path);

#ifdef __cplusplus
}
#endif
