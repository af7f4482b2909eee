// Container file-operations library (closed; host edition: platform/fileops):
// the copy engine the manager owns.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

class CopyFileImpl {
public:
    CopyFileImpl();
    virtual ~CopyFileImpl();

    // Copies one regular file to dst: its content, the mode of the stat
    // record (src's own when null), and uid and gid as owner. 0 on success,
    // else a negative errno and no dst left behind.
    int CopyFile(const char* src, const char* dst, const struct stat* st, uid_t uid, gid_t gid);
    // Starts a whole copy; answers as the "copy" command reports it.
    int CopyCommand(char* src, int srcId, char* dst, int dstId, unsigned int flags);
    // Copies one chunk; 1 when the copy is complete, negative errno on failure.
    int copyChunk(const char* src, int srcId, const char* dst, int dstId, long long offset, long length,
                  long long size, int flag);
    // Cancels a chunked copy; negative on failure.
    int copyCancel(const char* dst, long long size);
    // Writes the next entry of a directory scan into out (len bytes).
    int getDirNextFile(const char* path, char* out, long len);
    // Changes owner and mode of a migrated tree.
    int changePermissionMigrationCommand(char* path, int uid, int gid, int mode);
};
