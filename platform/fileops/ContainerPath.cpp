// Opening the copy engine's paths one directory at a time, no link followed.
#include "ContainerPath.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>

#include <vector>

namespace fileops {

namespace {

// The components of an absolute path, or false for "." and "..".
bool splitComponents(const char* path, std::vector<std::string>* parts) {
    const char* p = path;
    while (*p) {
        while (*p == '/') ++p;
        const char* end = strchrnul(p, '/');
        if (end == p) break;
        std::string part(p, static_cast<size_t>(end - p));
        if (part == "." || part == "..") return false;
        parts->push_back(part);
        p = end;
    }
    return true;
}

}  // namespace

int openContainerPath(const char* path, ContainerPath* out) {
    if (!path || path[0] != '/') return -EINVAL;
    if (strnlen(path, PATH_MAX) >= PATH_MAX) return -ENAMETOOLONG;
    std::vector<std::string> parts;
    if (!splitComponents(path, &parts) || parts.empty()) return -EINVAL;

    pelk::UniqueFd dir(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir.ok()) return -errno;
    std::string normal;
    for (size_t i = 0; i + 1 < parts.size(); ++i) {
        // O_NOFOLLOW makes a link on the way fail with ELOOP.
        pelk::UniqueFd next(openat(dir.get(), parts[i].c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!next.ok()) return -errno;
        dir = std::move(next);
        normal += "/" + parts[i];
    }
    out->parent = std::move(dir);
    out->name = parts.back();
    out->normal = normal + "/" + parts.back();
    return 0;
}

int openContainerPaths(const char* src, const char* dst, ContainerPath* from, ContainerPath* to) {
    int rc = openContainerPath(src, from);
    return rc != 0 ? rc : openContainerPath(dst, to);
}

bool isSameOrBelow(const std::string& inner, const std::string& outer) {
    if (inner.compare(0, outer.size(), outer) != 0) return false;
    return inner.size() == outer.size() || inner[outer.size()] == '/';
}

}  // namespace fileops
