// PLACEHOLDER until the host DLP library lands: the least that lets device
// programs link and the event thread answer. The audit state comes from the
// device profile ("dlp.audit_state", default 0); nothing else is kept.
// Replace this file with the real host edition.
#include <dlp/dlp.h>

#include <errno.h>
#include <sys/stat.h>

#include "devprofile/DeviceProfile.h"

extern "C" {

bool putPendingInodeValue(unsigned long, int) { return true; }
int getPidByInode(unsigned long) { return 0; }
bool clearPendingInode(unsigned long) { return false; }
int addOrUpdateMapEntry(int, char*) { return 0; }

int setExpiryforFile(int, char* path, int) {
    struct stat st;
    return lstat(path, &st) == 0 ? 0 : 2;
}

int get_expiryAfter_time(int) { return 0; }

int set_dlp_file_expiry_time(char* path, long) {
    struct stat st;
    return lstat(path, &st);
}

int getDLPAuditLogState(void) { return static_cast<int>(devprofile::getInt("dlp.audit_state", 0)); }

}  // extern "C"
