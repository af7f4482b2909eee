// Opening the copy engine's paths one directory at a time, no link followed.
#include "ContainerPath.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>

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
        pelk::UniqueFd next;
        int rc = openDirectoryAt(dir.get(), parts[i].c_str(), &next);
        if (rc != 0) return rc;
        dir = std::move(next);
        normal += "/" + parts[i];
    }
    out->parent = std::move(dir);
    out->name = parts.back();
    out->normal = normal + "/" + parts.back();
    return 0;
}

int openDirectoryAt(int dir, const char* name, pelk::UniqueFd* out) {
    out->reset(openat(dir, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (out->ok()) return 0;
    int error = errno;
    // O_DIRECTORY answers ENOTDIR for a link before O_NOFOLLOW is looked at.
    struct stat st;
    if (error == ENOTDIR && fstatat(dir, name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode)) return -ELOOP;
    return -error;
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
