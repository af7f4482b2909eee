// These lines carry no tag on the device either.
#define LOG_TAG nullptr

#include <log/log.h>
#include <string.h>

#include "config/EngineConfig.h"

bool compare_string(const char* a, const char* b) {
    if (!a || !b) return false;
    size_t len = strlen(a);
    return len == strlen(b) && memcmp(a, b, len) == 0;
}

void dump_engine(char const* label, engine* e) {
    if (!e) return;
    ALOGE("[%s] =========================\n", label);
    ALOGE("[%s] alias : %s\n", label, e->alias);
    ALOGE("[%s] id : %d\n", label, e->id);
    ALOGE("[%s] userid : %d\n", label, e->userid);
    ALOGE("[%s] flags : %d\n", label, e->flags);
    ALOGE("[%s] version : %d\n", label, e->version);
    ALOGE("[%s] isMigrating : %d\n", label, e->isMigrating);
}
