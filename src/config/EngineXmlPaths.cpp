#include <stdio.h>

#include "config/EngineConfig.h"

namespace {
const char kUsersDir[] = "/data/system/users";
}

// The bound is the readers' path size whatever the caller's buffer is: every
// caller hands in a kEnginePathSize buffer.
int get_engine_xml_path(int userId, char* path) {
    return snprintf(path, kEnginePathSize, "%s/%d/%s%d.xml", kUsersDir, userId, "MirelUser", userId);
}

int get_engine_list_xml_path(char* path) {
    return snprintf(path, kEnginePathSize, "%s/mirel_engine_list.xml", kUsersDir);
}

int get_secure_fs_xml_path(char* path) { return snprintf(path, kEnginePathSize, "%s/secure_fs.xml", kUsersDir); }
