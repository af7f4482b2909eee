// The per-user engine file: one "user" element at the level of the root.
// These lines carry no tag on the device either.
#define LOG_TAG nullptr

#include <log/log.h>
#include <stdlib.h>

#include "config/EngineConfig.h"
#include "config/XmlOwners.h"

namespace {

const char kNoMemory[] = "NO MEMORY to alloc engine list\n";

// Builds the record of one "user" element that carries attributes; null when
// it cannot be allocated.
engine* readUserElement(xmlNode* node) {
    pelk::XmlText alias(node, "alias");
    pelk::XmlText id(node, "id");
    pelk::XmlText userid(node, "userid");
    pelk::XmlText flags(node, "flags");
    pelk::XmlText version(node, "version");
    pelk::XmlText isMigrating(node, "isMigrating");

    engine* e = static_cast<engine*>(calloc(1, sizeof(engine)));
    if (!e) {
        ALOGE(kNoMemory);
        return nullptr;
    }
    alias.copyIfShorter(e->alias, sizeof(e->alias));
    e->id = id.toInt(-1);
    e->userid = userid.toInt(-1);
    e->flags = flags.toInt(0);
    e->version = version.toInt(0);
    e->isMigrating = compare_string(isMigrating.get(), "true") ? 1 : 0;
    return e;
}

}  // namespace

engine* parse(xmlNode* node) {
    for (xmlNode* cur = node; cur; cur = cur->next) {
        if (pelk::isElementNamed(cur, "user")) {
            ALOGE("[engine] %s\n", "user");
            if (cur->properties) {
                engine* e = readUserElement(cur);
                if (e) return e;
            }
        }
        // Nested "user" elements are read but never count: only the root's
        // level decides. Their records are dropped here.
        free(parse(cur->children));
    }
    return nullptr;
}

engine* get_engine(int id) {
    char path[kEnginePathSize];
    get_engine_xml_path(id, path);
    pelk::XmlDocument doc(path);
    if (!doc.ok()) {
        ALOGE("Failed to parse %s\n", path);
        return nullptr;
    }
    return parse(doc.root());
}
