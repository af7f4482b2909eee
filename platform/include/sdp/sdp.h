// Sensitive-data library (closed; host edition: platform/sdp).
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Tags one file or directory sensitive for the given user's engine.
int set_sensitive(int userId, char* path);
// Tags one file or directory protected.
int set_protected(char* path);

#ifdef __cplusplus
}
#endif
