// How the copy engine opens the paths it is given, so that a request reaches
// only what its path names: the path must be absolute, without "." or ".."
// components, and no symbolic link may stand anywhere on the way to its last
// component (each directory is opened without following one). The last
// component itself is never followed either: callers act on it through the
// parent descriptor with *at calls and no-follow flags.
#pragma once

#include <string>

#include "base/UniqueFd.h"

namespace fileops {

struct ContainerPath {
    pelk::UniqueFd parent;  // directory holding the last component
    std::string name;       // the last component
    std::string normal;     // the path with single slashes and no trailing one
};

// 0, or a negative errno: -EINVAL for a null or relative path, for "/" itself
// and for a path with a "." or ".." component; -ENAMETOOLONG for a path of
// PATH_MAX characters or more; -ELOOP when a directory on the way is a
// symbolic link; otherwise what opening a directory on the way answered.
int openContainerPath(const char* path, ContainerPath* out);
// Opens the directory `name` of dir without following a link: -ELOOP when
// it is one, -ENOTDIR for another kind of entry.
int openDirectoryAt(int dir, const char* name, pelk::UniqueFd* out);
// Both paths of a copy; the first failure's errno.
int openContainerPaths(const char* src, const char* dst, ContainerPath* from, ContainerPath* to);

// True when `inner` is `outer` or lies below it (both normal paths).
bool isSameOrBelow(const std::string& inner, const std::string& outer);

}  // namespace fileops
