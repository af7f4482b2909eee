// Host copy engine. The manager creates one at start-up; the copy commands
// that drive it arrive later, and until then every operation reports that it
// is not supported on this device rather than pretending to copy.
#include <fileops/CopyFileImpl.h>

#include <cerrno>

#include "devprofile/DeviceProfile.h"

CopyFileImpl::CopyFileImpl() {}
CopyFileImpl::~CopyFileImpl() {}

int CopyFileImpl::CopyFile(const char*, const char*, const struct stat*, uid_t, gid_t) { return -EOPNOTSUPP; }
int CopyFileImpl::CopyCommand(char*, int, char*, int, unsigned int) { return -EOPNOTSUPP; }
int CopyFileImpl::copyChunk(const char*, int, const char*, int, long long, long, long long, int) {
    return -EOPNOTSUPP;
}
int CopyFileImpl::copyCancel(const char*, long long) { return -EOPNOTSUPP; }
int CopyFileImpl::getDirNextFile(const char*, char*, long) { return -EOPNOTSUPP; }
int CopyFileImpl::changePermissionMigrationCommand(char*, int, int, int) { return -EOPNOTSUPP; }
