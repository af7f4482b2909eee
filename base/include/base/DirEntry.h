// Small questions about a directory entry, asked the same way everywhere.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

namespace pelk {

// True for the "." and ".." entries every directory lists.
inline bool isDotOrDotDot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// The entry's type as DT_*: from the entry itself when the filesystem fills
// it in, otherwise from an fstatat of the name (no link followed) in the
// directory open at dirFd. DT_UNKNOWN when neither tells.
inline unsigned char entryType(int dirFd, const struct dirent* entry) {
    if (entry->d_type != DT_UNKNOWN) return entry->d_type;
    struct stat st;
    if (fstatat(dirFd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) return DT_UNKNOWN;
    return IFTODT(st.st_mode);
}

}  // namespace pelk
