// The secure-filesystem file: a "secure_fs" element at the root's level
// announces the secure filesystem and the key store version guarding it.
#include <log/log.h>
#include <stdlib.h>

#include "config/EngineConfig.h"
#include "config/XmlOwners.h"

#define FS_LOG(...) __android_log_buf_print(LOG_ID_SYSTEM, ANDROID_LOG_INFO, nullptr, __VA_ARGS__)

namespace {

// Only the root and its following siblings count; children are not searched.
xmlNode* findAtRootLevel(xmlNode* root, const char* name) {
    for (xmlNode* cur = root; cur; cur = cur->next)
        if (pelk::isElementNamed(cur, name)) return cur;
    return nullptr;
}

}  // namespace

secure_fs* get_secure_fs() {
    char path[kEnginePathSize];
    get_secure_fs_xml_path(path);
    pelk::XmlDocument doc(path);
    if (!doc.ok()) {
        FS_LOG("Failed to parse %s\n", path);
        return nullptr;
    }
    FS_LOG("URL: %s\n", doc.url());

    xmlNode* node = findAtRootLevel(doc.root(), "secure_fs");
    if (!node) return nullptr;
    FS_LOG("[list] %s\n", "secure_fs");
    if (!node->properties) return nullptr;

    pelk::XmlText quarnVersion(node, "quarnVersion");
    pelk::XmlText version(node, "version");
    FS_LOG("   [list] quarn_version : %s\n", quarnVersion.printable());
    FS_LOG("   [list] version : %s\n", version.printable());

    secure_fs* fs = static_cast<secure_fs*>(calloc(1, sizeof(secure_fs)));
    if (!fs) {
        FS_LOG("NO MEMORY to alloc engine list\n");
        return nullptr;
    }
    quarnVersion.copyIfShorter(fs->quarnVersion, sizeof(fs->quarnVersion));
    fs->version = version.toInt(0);
    fs->spare = 0;
    return fs;
}

void free_secure_fs(secure_fs* fs) {
    free(fs);
}
