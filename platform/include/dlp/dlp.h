// Data-loss-prevention library (closed; host edition: platform/dlp).
#pragma once

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

// Serves a "dlp_notify" command line; 0 on success.
int handleDLPCommands(int argc, char** argv);

// Inode maps: an inode whose path could not be resolved yet, and the files
// each process has open.
bool putPendingInodeValue(unsigned long inode, int pid);  // true if stored
int getPidByInode(unsigned long inode);                   // pid, or below 1
bool clearPendingInode(unsigned long inode);              // true if cleared
int addOrUpdateMapEntry(int pid, char* path);             // result ignored

// Expiry of DLP files.
int setExpiryforFile(int pid, char* path, int userId);  // 2 when the file does not exist
int get_expiryAfter_time(int userId);                   // lifetime in seconds
int set_dlp_file_expiry_time(char* path, long expiry);  // 0, or non-zero with errno

// Current audit bit mask.
int getDLPAuditLogState(void);

#ifdef __cplusplus
}
#endif
