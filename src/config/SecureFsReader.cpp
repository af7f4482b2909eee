// The secure-filesystem file: a "secure_fs" element at the root's level
// announces the secure filesystem and the key store version guarding it.
// These lines carry no tag on the device either.
#define LOG_TAG nullptr

#include <log/log.h>
#include <stdlib.h>

#include "config/EngineConfig.h"
#include "config/XmlOwners.h"

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
        SLOGI("Failed to parse %s\n", path);
        return nullptr;
    }
    SLOGI("URL: %s\n", doc.url());

    xmlNode* node = findAtRootLevel(doc.root(), "secure_fs");
    if (!node) return nullptr;
    SLOGI("[list] %s\n", "secure_fs");
    if (!node->properties) return nullptr;

    pelk::XmlText quarnVersion(node, "quarnVersion");
    pelk::XmlText version(node, "version");
    SLOGI("   [list] quarn_version : %s\n", quarnVersion.printable());
    SLOGI("   [list] version : %s\n", version.printable());

    secure_fs* fs = static_cast<secure_fs*>(calloc(1, sizeof(secure_fs)));
    if (!fs) {
        SLOGI("NO MEMORY to alloc engine list\n");
        return nullptr;
    }
    quarnVersion.copyIfShorter(fs->quarnVersion, sizeof(fs->quarnVersion));
    fs->version = version.toInt(0);
    fs->spare = 0;
    return fs;
}

void free_secure_fs(secure_fs* fs) { free(fs); }
