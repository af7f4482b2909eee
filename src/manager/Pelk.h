// The container storage manager: the one object through which every
// container command reaches the storage state of the device. Building it
// brings the container side of the daemon to life (the "pelk" listener, the
// copy engine, the unlock map read from the mount table, the kernel event
// thread and, without file-based encryption, the keyring and the reaper).
//
// The members are grouped by the job they do; each group lives in its own
// source file of this folder.
#pragma once

#include <map>
#include <mutex>

class CommandListenerEnterprise;
class CopyFileImpl;
class Partition;
struct engine_list;

class Pelk {
public:
    // ---- singleton and start-up ----
    // The singleton, built with the full constructor on the first call. No
    // lock: the daemon's start-up code makes the first call before any other
    // thread can.
    static Pelk* Instance();
    // Full constructor: listener, copy engine, pid, listener start, unlock
    // map, kernel event thread, keyring and reaper (non-FBE only).
    Pelk();
    // Light constructor for the private-mode manager: copy engine and pid only.
    explicit Pelk(int pid);
    // Deletes the copy engine; the listener lives as long as the process.
    virtual ~Pelk();
    Pelk(const Pelk&) = delete;
    Pelk& operator=(const Pelk&) = delete;

    // Fills isUnlockedByCe from "/proc/mounts" for up to 10 container users.
    void initStatusMap();
    // Starts one more reaper thread (never joined); offered to the daemon.
    static void runClearChildThread();

    // ---- container keys and passwords ----
    // Unwraps a key of keyType (1 CE, 2 DE, 10 secure fs) from the key store
    // into key (33 bytes); sets *isRaw when found. 0 or -1.
    int getFEKEK(int userId, char* key, bool* isRaw, int keyType);
    // Reads (create false) or makes and stores (create true) the DE key
    // through the user's EDEK file; key gets 33 bytes. 0 or -1.
    int getDEKeyFromEDEK(int userId, char* key, bool create);
    // Creates the password-wrapped key file (type 10: the DE variant). 0 or -1.
    int createKey(int userId, const char* password, int keyType);
    // 0 when the password opens the user's key file, else -1.
    int verifyPassword(int userId, const char* password);
    // Re-wraps the user's key file; the library's result.
    int changePassword(int userId, const char* oldPassword, const char* newPassword);
    // Deletes the user's key file if there is one; always 0.
    int removePassword(int userId);

    // ---- DE and CE storage ----
    // Creates missing DE directories and returns the DE key in key (33 bytes).
    int prepareStorageDe(int userId, char* key);
    // Creates the missing CE directories of types 't' and 'u'.
    int prepareStorageCe(int userId);
    // Mounts the three DE areas.
    int mountStorageDe(int userId, const char* key, bool isRawKey, bool partitionFlag);
    // Mounts the four CE areas, records the unlock, starts the remount worker.
    int mountStorageCe(int userId, const char* key, bool isRawKey, bool partitionFlag, bool remount);

    // ---- boot pre-mount ----
    // Pre-mounts every container user whose keys need no password.
    int preMount();
    // DE pre-mount of the listed users; -1 when any of them failed.
    int preMountPersonaDeInternal(int* userIds, int count);
    // CE pre-mount of the listed users; -1 when any of them failed.
    int preMountPersonaInternal(int* userIds, int count);
    // Mounts the secure filesystem of user 0; the list is not consulted.
    int preMountSecureFileSystem(engine_list* engines);

    // ---- encrypted mounts and unmount ----
    // Mounts one area with a raw key (isKey) or the container password.
    int ecryptfsMount(Partition* partition, const char* secret, bool isKey);
    // Runs "/system/bin/sdcard" for types 'f', 'g' and 'i'; -1 for others.
    int mountSdcardfs(Partition* partition);
    // Takes an area (and its views) down; not mounted counts as success.
    int unmount(Partition* partition);
    // Detaches a path, up to seven tries with the process killer in between.
    int doUnmount(const char* path);
    // 1 when mountPoint is in "/proc/mounts" (pid null) or "/proc/<pid>/mounts".
    int isMountedInternal(const char* pid, const char* mountPoint);
    // Makes every missing directory of a path with this mode and owner.
    int makeDirectory(const char* path, unsigned int mode, unsigned int uid, unsigned int gid);
    // Rewrites a tree through the copy engine so every file is re-encrypted.
    int cryptInplace(const char* src, const char* dst, bool flag);
    // The raw stat() result: 0 when the path exists, -1 when it does not.
    int isFileExist(const char* path, int unused);
    // Writes the ".MetaEcfsFile" marker into a directory. 0 or -1.
    int createEncryptMetaData(const char* dir);
    // Removes the marker; the unlink() result.
    int deleteEncryptMetaData(const char* dir);
    // -1 only when the marker is certainly missing, else 0.
    int checkEncryptMetaData(const char* dir);

    // ---- mount state queries ----
    // 1 default, 2 read, 3 write view of the process's "/storage"; 0 otherwise.
    int getMountMode(const char* pid);
    // DE areas all mounted, or (once CE is unlocked) CE areas all mounted.
    bool isMounted(int userId);
    // Sets the user's unlock flag, or erases the entry when remove is true.
    void updateStatusMap(int userId, bool unlocked, bool remove);
    // The user's unlock flag; false (and no new entry) for an unknown user.
    bool isCeStorageAvailable(int userId);

    // ---- process namespaces and child workers ----
    // Gives the processes of target (0: user 0) the user's emulated view.
    void remountProcesses(int target, int userId);
    // Detaches path inside the namespace of every process of userId.
    void unmountProcesses(int userId, const char* path);
    // Detaches path here and in every container process, ten passes.
    int unmountPrivateZanthProcesses(const char* path);
    // Remembers a worker unless the user already has one.
    static void addChildToList(int userId, int pid);
    // True once the user has no worker; false after 30 one-second polls.
    static bool waitForThreadAvailable(int userId);
    // Reaps finished workers and terminates the others.
    static void clearChildList();
    // The reaper thread's body: clearChildList, sleep 5 s, forever.
    static void* runClearChildThreadInternal(void* unused);

    // ---- teardown and maintenance ----
    // Forgets the CE unlock, detaches process views, unmounts the CE areas.
    int unmountStorageCe(int userId);
    // Unmounts the three DE areas.
    int unmountStorageDe(int userId);
    // Unmounts the two sensitive-data areas of user 0.
    int unmountStorageMirel();
    // Mounts the sensitive-data areas (FBE: only the media view).
    int mountStorageMirel(const char* password);
    // CE then DE teardown of the first five containers.
    void unmountAllZanthStorages();
    // Creates every area of a kind (0 CE, 1 DE, 2 sensitive data).
    int forceCreateStorage(int userId, int kind);
    // Removes every area of a kind, trying all of them.
    int forceRemoveStorage(int userId, int kind);
    // Not supported: always -1.
    int resetZanthStorage(int userId);
    // Package directory sync from user A's to user B's DE data area.
    int syncPkgDir(int userA, int userB);
    // Package directory sync between the two users' areas of a type.
    int syncPkgDirInternal(int userA, int userB, int type);
    // Creates missing directories under a container's emulated storage; 1 when it does nothing.
    int zanthfs_check_and_mkdirs(const char* path, unsigned int mode);
    // Removes one file, or one directory that holds no entries.
    int deleteFile(const char* path, int unused);
    // chmod and chown of the user's wrapped-key file.
    int changeEDKFilePermission(int userId, unsigned int mode, unsigned int uid, unsigned int gid);
    // Hands a "dlp_notify" line to the DLP library.
    int forwardDLPCommand(int argc, char** argv);
    // Copy engine forwarders: the library's results unchanged.
    int scanDir(const char* path, char* out, long position);
    int copy(char* src, int srcId, char* dst, int dstId, unsigned int flags);
    int copyChunk(const char* src, int srcId, const char* dst, int dstId, long long offset, long length, long long size,
                  int flag);
    int copyCancel(const char* dst, long long size);
    int changePermissionMigration(char* path, int uid, int gid, int mode);

    // ---- state ----
    // The "pelk" listener; null in the private-mode manager.
    CommandListenerEnterprise* mListener = nullptr;
    // Copy engine of the copy commands.
    CopyFileImpl* mCopyEngine = nullptr;
    // Process id of the daemon when the manager was built.
    int mPid = 0;
    // Path of the last encryption metadata file built.
    char mMetaPath[256] = {0};
    // 0 after the full constructor, -1 after Pelk(int); the secure-fs
    // pre-mount sets 6 when it finds 0.
    int mPreMountMark = -1;

    // The singleton; null until the first Instance().
    static Pelk* sInstance;
    // Container user -> CE storage mounted (unlocked); absent means false.
    static std::map<int, bool> isUnlockedByCe;
    // Container user -> pid of its remount or unmount worker; one per user.
    static std::map<int, int> remountChildList;
    // Guards remountChildList between the listener thread and the reaper.
    // Held only around a map access, never across a sleep or a wait.
    static std::mutex remountChildListLock;
};
