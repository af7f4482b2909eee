// Making every missing directory of a path, shared by the partition's and
// the manager's directory makers: only directories made here get the mode
// and owner (and, through afterMake, whatever else the caller adds), so the
// ones already there keep theirs.
#pragma once

#include <functional>

namespace pelk {

// Walks the path's prefixes ("/a/", "/a/b/", ...). Each prefix that does not
// exist is made with mode; when it is reached without a symbolic link it then
// gets mode and uid:gid exactly, and afterMake (when given) runs on it and
// may stop the walk with a non-zero answer. With stopAtPath the walk ends
// once the prefix built covers the whole path. Answers 0, or -1 for a path
// of Partition::PATH_SIZE characters or more and for any failed step.
int makeDirectoryChain(const char* path, unsigned int mode, unsigned int uid, unsigned int gid, bool stopAtPath,
                       const std::function<int(const char*)>& afterMake);

}  // namespace pelk
