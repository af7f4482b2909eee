// Host-only: what the host container encryption library was asked about
// eCryptfs. Every process of the device appends to one record file
// ("/sim/log/ecryptfs"), so a test sees the calls a daemon in another
// process made. Keys and passwords are never recorded.
#pragma once

#include <string>
#include <vector>

struct EcryptfsCall {
    std::string function;  // "mount_ecryptfs", "mount_ecryptfs_withpwd", "install_ecryptfs_keyring"
    std::string lower;     // the mount calls' paths; empty for the keyring
    std::string upper;
    int mode;      // the mode argument, shown as "partition_id=" in the mount table
    int reserved;  // the fifth argument (0 from the engine)
    int flag;      // the partition's flag
    int userId;
    int keyIndex;  // mount_ecryptfs_withpwd's eighth argument; 0 for the others
    int type;      // the partition type code
    int result;    // what the call answered
};

// Every call since the device was reset (or ecryptfs_clear), oldest first.
std::vector<EcryptfsCall> ecryptfs_calls();
// Forgets the calls so far, for every process of the device.
void ecryptfs_clear();
// Number of install_ecryptfs_keyring calls that answered 0.
int ecryptfs_keyring_installs();
// Number of mount calls (either form) for this upper directory that
// answered 0.
int ecryptfs_mount_count(const std::string& upper);
