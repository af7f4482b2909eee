// One storage area of one container user: where its backing data lives, where
// it is made visible, which kind of area it is, and the owner and mode its
// directories get. A plain value: it owns no handle and allocates nothing, so
// callers build one on the stack for each operation.
#pragma once

#include <dirent.h>
#include <stdint.h>
#include <sys/stat.h>

struct engine_list;

// Type codes of the storage areas. The values are the character codes, so
// callers may pass either the name or the character ('e' ... 'u').
enum PartitionType : int32_t {
    PARTITION_CE_DATA = 'e',           // 101: credential-encrypted app data
    PARTITION_CE_SDCARD = 'f',         // 102: the emulated sdcard backing store
    PARTITION_PRIVATE_MODE = 'g',      // 103: the private-mode store (also every explicit-path partition)
    PARTITION_MIREL_USER = 'h',        // 104: sensitive-data user area (device-wide)
    PARTITION_MIREL_MEDIA = 'i',       // 105: sensitive-data media area (device-wide)
    PARTITION_SDCARDFS_DEFAULT = 'j',  // 106: sdcardfs default view
    PARTITION_SDCARDFS_READ = 'k',     // 107: sdcardfs read view
    PARTITION_SDCARDFS_WRITE = 'l',    // 108: sdcardfs write view
    PARTITION_TMP_SDCARD = 'm',        // 109: transient sdcard staging area
    PARTITION_PRIVATE_DEFAULT = 'n',   // 110: private-mode default view
    PARTITION_PRIVATE_READ = 'o',      // 111: private-mode read view
    PARTITION_PRIVATE_WRITE = 'p',     // 112: private-mode write view
    PARTITION_DE_DATA = 'q',           // 113: device-encrypted app data
    PARTITION_DE_SYSTEM = 'r',         // 114: device-encrypted system data
    PARTITION_DE_MISC = 's',           // 115: device-encrypted misc data
    PARTITION_CE_SYSTEM = 't',         // 116: credential-encrypted system data
    PARTITION_CE_MISC = 'u',           // 117: credential-encrypted misc data
};

class Partition {
public:
    // Size of each path buffer, terminator included.
    static constexpr int PATH_SIZE = 4096;

    // Creation, mount, unmount and removal walk these groups in this order.
    static constexpr int32_t LIST_DE_STORAGE[3] = {'q', 's', 'r'};
    static constexpr int32_t LIST_CE_STORAGE[4] = {'e', 'f', 'u', 't'};
    static constexpr int32_t LIST_MIREL_STORAGE[2] = {'h', 'i'};

    // Area of `type` for `userId`; the text argument is accepted and never read.
    Partition(int userId, int type, const char* unused, bool mirelSupported);
    // Area with the given paths (cut to 4095 characters); its type is always 'g'.
    Partition(int userId, const char* srcPath, const char* mntPath, bool mirelSupported);
    // Logs its going; releases nothing.
    ~Partition();

    // Logs user, type label, both paths and the Mirel flag.
    void dump();

    // True when mMntPath is a mount point now (exact match in /proc/mounts).
    bool isMounted();

    // Wipes an existing source directory, then makes source and mount directories.
    int create(const char* unused, long long size);
    // Removes source and mount directories; refused while mounted.
    int remove();
    // True when the path exists and is a directory.
    bool isDirectory(const char* path);
    // Deletes a directory tree including the directory itself.
    int removeDirectory(const char* path);
    // Deletes a directory's contents (entries the filter keeps survive), and the directory when removeSelf.
    int clearDirectory(const char* path, int removeSelf, int (*filter)(const char*, int));
    // Recursive worker of clearDirectory over an open directory stream.
    int clearDirContents(DIR* dir, int (*filter)(const char*, int));
    // Unlinks one file, killing the processes holding it between retries.
    int removeFile(const char* path);
    // Makes every missing directory of a path with the given mode and owner.
    int makeDirectory(const char* path, unsigned int mode, unsigned int uid, unsigned int gid);
    // Makes a path below mMntPath for a legacy-encryption container user.
    int makeRelativeDirectory(const char* relativePath, unsigned int mode);
    // Writes the parent directory of a path into `out` (PATH_SIZE bytes).
    int extractDirectory(const char* path, char* out);
    // 1 when the path resolves to itself, else -1.
    static int isCanonicalPath(const char* path);
    // True when the path lies in the runtime default emulated tree.
    static bool isSdcardPath(const char* path);
    // Makes and registers the "Chamber" directory of an sdcard partition.
    bool makeZanthChamberDirectory();
    // Removes it; true when there was nothing to remove or removal failed.
    bool removeZanthChamberDirectory();
    // Makes and registers the chamber directory of one engine.
    void createEngineChamber(int engineId);
    // Unregisters and removes the chamber directory of one engine.
    void removeEngineChamber(int engineId);
    // Makes and registers the chambers of every engine of a list.
    void enableEngineChambers(engine_list* list);
    // Makes the three per-view directories of an sdcard partition.
    int preparePartition();
    // Resets mode and owner of an sdcard partition's source directory.
    void arrangeStoragePermission();

    // Makes here the package directories found in `other`'s mount path.
    int syncPkgDir(Partition* other);
    // Writes the data path of a package into `out` of `size` bytes.
    void getPkgPath(const char* pkg, char* out, int size);
    // Bytes occupied by a directory tree, the directory itself too when includeSelf.
    uint64_t getDirectorySize(const char* path, int includeSelf);
    // Bytes occupied below an open directory descriptor, which it consumes and closes.
    int64_t calculate_dir_size(int dirFd);
    // Bytes occupied by one file.
    uint64_t stat_size(struct stat* st);

    // Scratch path, written only while preparing the sdcard views.
    char mWorkPath[PATH_SIZE];
    // Source (backing) path.
    char mSrcPath[PATH_SIZE];
    // Mount (target) path.
    char mMntPath[PATH_SIZE];
    int32_t mUserId;
    int32_t mType;
    bool mMirelSupported;
    // Owner, group and mode of the directories this area creates.
    uint32_t mUid;
    uint32_t mGid;
    uint32_t mMode;

private:
    void setDefaults(int userId, int type, bool mirelSupported);
    void fillFromTable();
    void logCreated();
};
