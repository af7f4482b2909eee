// Container file-operations library (closed; host edition: platform/fileops):
// the copy engine the manager owns.
//
// Every path is absolute and is taken as it stands: a "." or ".." component
// is refused with -EINVAL, a symbolic link on the way with -ELOOP, and the
// last component is never followed. The container user ids and the flags
// are accepted for the device's interface; the host edition does not use
// them. Failures answer a negative errno.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

class CopyFileImpl {
public:
    // Size of the text a directory scan fills.
    static constexpr long SCAN_TEXT_SIZE = 4096;

    CopyFileImpl();
    virtual ~CopyFileImpl();

    // Copies one regular file to dst: its content, the mode of the stat
    // record (src's own when null), and uid and gid as owner. 0 on success,
    // else a negative errno and no dst left behind.
    int CopyFile(const char* src, const char* dst, const struct stat* st, uid_t uid, gid_t gid);
    // Copies a file or a whole tree to dst, which must not exist (-EEXIST)
    // nor lie inside src (-EINVAL). Content, mode, owner and times are kept;
    // links are copied as links, never followed; devices, FIFOs and sockets
    // are left out. 0, or a negative errno with no part of dst left behind.
    int CopyCommand(char* src, int srcId, char* dst, int dstId, unsigned int flags);
    // Writes the range [offset, offset + length) of the regular file src at
    // the same offset of dst (made when missing). 1 when the range ends at
    // `size`: dst then has that size and src's mode and owner; 0 while the
    // copy is not complete. -EINVAL for a negative number, a range past
    // `size` or past the end of src, or dst being src.
    int copyChunk(const char* src, int srcId, const char* dst, int dstId, long long offset, long length, long long size,
                  int flag);
    // Removes the partial regular file dst of a chunked copy. 0 also when
    // there is none; -EINVAL for a negative size or a dst of another kind.
    int copyCancel(const char* dst, long long size);
    // Lists the entries of the directory at path, in name order, from the
    // entry numbered `position` (0 for the first) on: each name followed by
    // a '/', as many as out (SCAN_TEXT_SIZE bytes, always terminated) holds.
    // 0 when names were listed, 1 when none is left from that position,
    // -EINVAL for a negative position.
    int getDirNextFile(const char* path, char* out, long position);
    // Gives every entry of the tree at path, path included, the owner uid
    // and gid (-1 keeps it) and the mode (0 to 07777, else -EINVAL); links
    // get the owner only.
    int changePermissionMigrationCommand(char* path, int uid, int gid, int mode);
};
