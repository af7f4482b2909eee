// The VFS that carries the sensitive-data pragmas: every call goes to the
// default VFS it wraps, except the pragma file control on a main database,
// which SensitivePragmas answers first. It becomes the default VFS as the
// program starts, so the engine's plain sqlite3_open reaches it untouched;
// the link option in platform/CMakeLists.txt pulls this file in.
#include <sqlite3.h>
#include <sqlite_sdp/sqlite_sdp.h>

#include "SensitivePragmas.h"

namespace {

struct ShimFile {
    sqlite3_file base;
    const char* dbPath;  // main databases only: SQLite keeps the name until xClose
    sqlite3_file* real;  // the wrapped VFS's file, right behind this struct
};

sqlite3_file* realOf(sqlite3_file* file) { return reinterpret_cast<ShimFile*>(file)->real; }
const sqlite3_io_methods* io(sqlite3_file* file) { return realOf(file)->pMethods; }
sqlite3_vfs* realVfs(sqlite3_vfs* vfs) { return static_cast<sqlite3_vfs*>(vfs->pAppData); }

// ---- the file: everything forwarded but the pragma control ----
int shimClose(sqlite3_file* f) { return io(f)->xClose(realOf(f)); }
int shimRead(sqlite3_file* f, void* buf, int n, sqlite3_int64 off) { return io(f)->xRead(realOf(f), buf, n, off); }
int shimWrite(sqlite3_file* f, const void* buf, int n, sqlite3_int64 off) {
    return io(f)->xWrite(realOf(f), buf, n, off);
}
int shimTruncate(sqlite3_file* f, sqlite3_int64 size) { return io(f)->xTruncate(realOf(f), size); }
int shimSync(sqlite3_file* f, int flags) { return io(f)->xSync(realOf(f), flags); }
int shimFileSize(sqlite3_file* f, sqlite3_int64* size) { return io(f)->xFileSize(realOf(f), size); }
int shimLock(sqlite3_file* f, int level) { return io(f)->xLock(realOf(f), level); }
int shimUnlock(sqlite3_file* f, int level) { return io(f)->xUnlock(realOf(f), level); }
int shimCheckReservedLock(sqlite3_file* f, int* out) { return io(f)->xCheckReservedLock(realOf(f), out); }
int shimSectorSize(sqlite3_file* f) { return io(f)->xSectorSize(realOf(f)); }
int shimDeviceCharacteristics(sqlite3_file* f) { return io(f)->xDeviceCharacteristics(realOf(f)); }

int shimFileControl(sqlite3_file* f, int op, void* arg) {
    const char* dbPath = reinterpret_cast<ShimFile*>(f)->dbPath;
    if (op == SQLITE_FCNTL_PRAGMA && dbPath) {
        int rc = sqlitesdp::answerPragma(dbPath, realOf(f), static_cast<char**>(arg));
        if (rc != SQLITE_NOTFOUND) return rc;
    }
    return io(f)->xFileControl(realOf(f), op, arg);
}

// Shared memory and memory maps exist from versions 2 and 3 of the wrapped
// file's methods; below that they are answered as unsupported.
int shimShmMap(sqlite3_file* f, int page, int size, int extend, void volatile** out) {
    if (io(f)->iVersion < 2) return SQLITE_IOERR_SHMMAP;
    return io(f)->xShmMap(realOf(f), page, size, extend, out);
}
int shimShmLock(sqlite3_file* f, int offset, int n, int flags) {
    if (io(f)->iVersion < 2) return SQLITE_IOERR_SHMLOCK;
    return io(f)->xShmLock(realOf(f), offset, n, flags);
}
void shimShmBarrier(sqlite3_file* f) {
    if (io(f)->iVersion >= 2) io(f)->xShmBarrier(realOf(f));
}
int shimShmUnmap(sqlite3_file* f, int deleteFlag) {
    if (io(f)->iVersion < 2) return SQLITE_OK;
    return io(f)->xShmUnmap(realOf(f), deleteFlag);
}
int shimFetch(sqlite3_file* f, sqlite3_int64 off, int n, void** out) {
    *out = nullptr;
    if (io(f)->iVersion < 3) return SQLITE_OK;
    return io(f)->xFetch(realOf(f), off, n, out);
}
int shimUnfetch(sqlite3_file* f, sqlite3_int64 off, void* p) {
    if (io(f)->iVersion < 3) return SQLITE_OK;
    return io(f)->xUnfetch(realOf(f), off, p);
}

const sqlite3_io_methods kShimIo = {
    3,
    shimClose,
    shimRead,
    shimWrite,
    shimTruncate,
    shimSync,
    shimFileSize,
    shimLock,
    shimUnlock,
    shimCheckReservedLock,
    shimFileControl,
    shimSectorSize,
    shimDeviceCharacteristics,
    shimShmMap,
    shimShmLock,
    shimShmBarrier,
    shimShmUnmap,
    shimFetch,
    shimUnfetch,
};

// ---- the VFS: opening wraps the file, the rest is forwarded ----
int shimOpen(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* outFlags) {
    ShimFile* shim = reinterpret_cast<ShimFile*>(file);
    shim->real = reinterpret_cast<sqlite3_file*>(shim + 1);
    shim->dbPath = (flags & SQLITE_OPEN_MAIN_DB) ? name : nullptr;
    int rc = realVfs(vfs)->xOpen(realVfs(vfs), name, shim->real, flags, outFlags);
    // SQLite calls xClose only when the methods are set.
    shim->base.pMethods = shim->real->pMethods ? &kShimIo : nullptr;
    return rc;
}
int shimDelete(sqlite3_vfs* v, const char* name, int syncDir) { return realVfs(v)->xDelete(realVfs(v), name, syncDir); }
int shimAccess(sqlite3_vfs* v, const char* name, int flags, int* out) {
    return realVfs(v)->xAccess(realVfs(v), name, flags, out);
}
int shimFullPathname(sqlite3_vfs* v, const char* name, int n, char* out) {
    return realVfs(v)->xFullPathname(realVfs(v), name, n, out);
}
void* shimDlOpen(sqlite3_vfs* v, const char* name) { return realVfs(v)->xDlOpen(realVfs(v), name); }
void shimDlError(sqlite3_vfs* v, int n, char* out) { realVfs(v)->xDlError(realVfs(v), n, out); }
void (*shimDlSym(sqlite3_vfs* v, void* handle, const char* symbol))(void) {
    return realVfs(v)->xDlSym(realVfs(v), handle, symbol);
}
void shimDlClose(sqlite3_vfs* v, void* handle) { realVfs(v)->xDlClose(realVfs(v), handle); }
int shimRandomness(sqlite3_vfs* v, int n, char* out) { return realVfs(v)->xRandomness(realVfs(v), n, out); }
int shimSleep(sqlite3_vfs* v, int micros) { return realVfs(v)->xSleep(realVfs(v), micros); }
int shimCurrentTime(sqlite3_vfs* v, double* out) { return realVfs(v)->xCurrentTime(realVfs(v), out); }
int shimGetLastError(sqlite3_vfs* v, int n, char* out) { return realVfs(v)->xGetLastError(realVfs(v), n, out); }
int shimCurrentTimeInt64(sqlite3_vfs* v, sqlite3_int64* out) { return realVfs(v)->xCurrentTimeInt64(realVfs(v), out); }

sqlite3_vfs gShimVfs;

}  // namespace

// Referenced by the link option so the linker keeps this file, and with it
// the registration below; 1 once the shim is the default VFS.
extern "C" {
int sqlite_sdp_registered = 0;
}

__attribute__((constructor)) static void registerShimVfs() {
    sqlite3_vfs* real = sqlite3_vfs_find(nullptr);
    if (!real || real->iVersion < 2) return;
    gShimVfs.iVersion = 2;
    gShimVfs.szOsFile = static_cast<int>(sizeof(ShimFile)) + real->szOsFile;
    gShimVfs.mxPathname = real->mxPathname;
    gShimVfs.zName = SQLITE_SDP_VFS_NAME;
    gShimVfs.pAppData = real;
    gShimVfs.xOpen = shimOpen;
    gShimVfs.xDelete = shimDelete;
    gShimVfs.xAccess = shimAccess;
    gShimVfs.xFullPathname = shimFullPathname;
    gShimVfs.xDlOpen = shimDlOpen;
    gShimVfs.xDlError = shimDlError;
    gShimVfs.xDlSym = shimDlSym;
    gShimVfs.xDlClose = shimDlClose;
    gShimVfs.xRandomness = shimRandomness;
    gShimVfs.xSleep = shimSleep;
    gShimVfs.xCurrentTime = shimCurrentTime;
    gShimVfs.xGetLastError = shimGetLastError;
    gShimVfs.xCurrentTimeInt64 = shimCurrentTimeInt64;
    if (sqlite3_vfs_register(&gShimVfs, 1) == SQLITE_OK) sqlite_sdp_registered = 1;
}
