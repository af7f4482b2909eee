// The manager of the private-mode store: the device owner's password
// protected area, served on the "ppm" socket. It reuses the container
// manager's unmount, sdcardfs and file primitives and adds its own listener,
// copy engine, key file ("/data/system/users/privatemode_edk_<user>") and
// mount sequence.
#pragma once

#include "manager/Pelk.h"

class CommandListenerPrivate;
class SocketListener;

class PrivatePartitionManager : public Pelk {
public:
    // The singleton, built on first use (no lock: start-up code calls first).
    static PrivatePartitionManager* Instance();
    // Pelk(getpid()), then the "ppm" listener (started) and a copy engine.
    PrivatePartitionManager();
    // Deletes its own copy engine; the listener lives as long as the process.
    ~PrivatePartitionManager() override;

    // Size of a key file path, terminator included.
    static constexpr int KEY_PATH_SIZE = 512;
    // Writes "/data/system/users/privatemode_edk_<user>" into path.
    static void keyFilePath(int userId, char (&path)[KEY_PATH_SIZE]);

    // Creates the private-mode key file with this password. 0 or -1.
    int createKey(int userId, const char* password);
    // Mounts the private-mode area, its three views and the media link. An
    // area mounted already answers 0 without a look at the password; the
    // first mount of a user creates the key file with whatever password it
    // is given. 0, -1, or the closed mount function's own failure.
    int ecryptfsMount(Partition* partition, const char* password);
    // 0 when the password opens the private-mode key file, else -1.
    int verifyPassword(int userId, const char* password);
    // Re-wraps the private-mode key file; the library's result.
    int changePassword(int userId, const char* oldPassword, const char* newPassword);
    // Deletes the private-mode key file, present or not; always 0.
    int removePassword(int userId);

    // The "ppm" listener.
    CommandListenerPrivate* mPpmListener = nullptr;
    // The same listener seen as its socket listener, used to start it.
    SocketListener* mPpmSocketListener = nullptr;
    // A copy engine of its own.
    CopyFileImpl* mPpmCopyEngine = nullptr;

    // The singleton; null until the first Instance().
    static PrivatePartitionManager* sInstance;
};
