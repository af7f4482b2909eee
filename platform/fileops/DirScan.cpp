// Directory scans in steps: each call lists the entries of a directory from
// a position on, as many as the text holds, in name order so that positions
// mean the same from one call to the next.
#include <fileops/CopyFileImpl.h>
#include <string.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "ContainerPath.h"
#include "DirWalk.h"
#include "base/UniqueFd.h"
#include "devprofile/DeviceProfile.h"

namespace {

int readNames(const char* path, std::vector<std::string>* names) {
    fileops::ContainerPath dir;
    int rc = fileops::openContainerPath(path, &dir);
    if (rc != 0) return rc;
    pelk::UniqueFd fd;
    rc = fileops::openDirectoryAt(dir.parent.get(), dir.name.c_str(), &fd);
    if (rc != 0) return rc;
    rc = fileops::forEachEntry(std::move(fd), [names](int, const char* name) {
        names->push_back(name);
        return 0;
    });
    if (rc != 0) return rc;
    std::sort(names->begin(), names->end());
    return 0;
}

}  // namespace

int CopyFileImpl::getDirNextFile(const char* path, char* out, long position) {
    if (devprofile::shouldFail("getDirNextFile")) return -EIO;
    if (!out) return -EINVAL;
    memset(out, 0, SCAN_TEXT_SIZE);
    if (position < 0) return -EINVAL;
    std::vector<std::string> names;
    int rc = readNames(path, &names);
    if (rc != 0) return rc;
    if (static_cast<size_t>(position) >= names.size()) return 1;

    // A name is at most NAME_MAX bytes, so the first one always fits.
    size_t used = 0;
    for (size_t i = static_cast<size_t>(position); i < names.size(); ++i) {
        const std::string& name = names[i];
        if (used + name.size() + 1 >= static_cast<size_t>(SCAN_TEXT_SIZE)) break;
        memcpy(out + used, name.data(), name.size());
        out[used + name.size()] = '/';
        used += name.size() + 1;
    }
    return 0;
}
