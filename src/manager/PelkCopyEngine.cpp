// The copy and migration commands' way to the manager's copy engine: each
// operation hands its arguments on unchanged and answers the engine's result.
#include <fileops/CopyFileImpl.h>

#include "manager/Pelk.h"

int Pelk::scanDir(const char* path, char* out, long position) {
    return mCopyEngine->getDirNextFile(path, out, position);
}

int Pelk::copy(char* src, int srcId, char* dst, int dstId, unsigned int flags) {
    return mCopyEngine->CopyCommand(src, srcId, dst, dstId, flags);
}

int Pelk::copyChunk(const char* src, int srcId, const char* dst, int dstId, long long offset, long length,
                    long long size, int flag) {
    return mCopyEngine->copyChunk(src, srcId, dst, dstId, offset, length, size, flag);
}

int Pelk::copyCancel(const char* dst, long long size) { return mCopyEngine->copyCancel(dst, size); }

int Pelk::changePermissionMigration(char* path, int uid, int gid, int mode) {
    return mCopyEngine->changePermissionMigrationCommand(path, uid, gid, mode);
}
