// Directory preparation (host edition: platform/cutils).
#pragma once

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

// Makes sure path is a directory with exactly this mode and owner, creating
// it when missing. Answers 0, or -1 with errno set.
int fs_prepare_dir(const char* path, mode_t mode, uid_t uid, gid_t gid);

#ifdef __cplusplus
}
#endif
