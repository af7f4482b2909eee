// The engine list file: every "engine" element, at any depth, names a
// per-user engine file to load.
// These lines carry no tag on the device either.
#define LOG_TAG nullptr

#include <log/log.h>
#include <stdlib.h>

#include "base/UniqueHandle.h"
#include "config/EngineConfig.h"
#include "config/XmlOwners.h"

namespace {

// The engine most recently loaded in one sibling walk. An element that
// follows it at the same level appends it again, so the list may hold one
// engine in several slots; whatever the list never took is freed here.
class CurrentEngine {
public:
    ~CurrentEngine() { replace(nullptr); }
    engine* get() const { return engine_; }
    void replace(engine* next) {
        if (engine_ && !listed_) free(engine_);
        engine_ = next;
        listed_ = false;
    }
    void appendTo(engine_list* list) {
        if (!list) return;
        if (list->count >= kEngineListCapacity) {
            SLOGI("   [list] list full, engine %d not added\n", engine_->id);
            return;
        }
        list->engines[list->count++] = engine_;
        listed_ = true;
    }

private:
    engine* engine_ = nullptr;
    bool listed_ = false;
};

}  // namespace

void parse(xmlNode* node, engine_list* list) {
    CurrentEngine current;
    for (xmlNode* cur = node; cur; cur = cur->next) {
        if (pelk::isElementNamed(cur, "engine")) {
            SLOGI("[list] %s\n", "engine");
            current.replace(nullptr);
            if (cur->properties) {
                pelk::XmlText alias(cur, "alias");
                pelk::XmlText id(cur, "id");
                SLOGI("   [list] alias : %s\n", alias.printable());
                SLOGI("   [list] engine_id : %s\n", id.printable());
                // Without an id there is no file to name.
                if (id.get()) current.replace(get_engine(atoi(id.get())));
            }
        }
        if (cur->type == XML_ELEMENT_NODE && current.get()) current.appendTo(list);
        parse(cur->children, list);
    }
}

engine_list* get_engines() {
    char path[kEnginePathSize];
    get_engine_list_xml_path(path);
    pelk::HeapBlock<engine_list> list(static_cast<engine_list*>(calloc(1, sizeof(engine_list))));
    if (!list.get()) {
        SLOGI("NO MEMORY to alloc engine list\n");
        return nullptr;
    }
    pelk::XmlDocument doc(path);
    if (!doc.ok()) {
        SLOGI("Failed to parse %s\n", path);
        return nullptr;
    }
    SLOGI("URL: %s\n", doc.url());
    parse(doc.root(), list.get());
    // A list without engines counts as no list at all.
    if (list.get()->count == 0) return nullptr;
    return list.release();
}

void free_engines(engine_list* list) {
    if (!list) return;
    for (int i = 0; i < list->count; ++i) {
        const engine* e = list->engines[i];
        if (e) SLOGI("[freeing] engine : %s[%d, %d]\n", e->alias, e->id, e->userid);
    }
    // An engine listed twice is freed once.
    for (int i = 0; i < list->count; ++i) {
        engine* e = list->engines[i];
        if (!e) continue;
        for (int j = i + 1; j < list->count; ++j)
            if (list->engines[j] == e) list->engines[j] = nullptr;
        free(e);
    }
    free(list);
}
