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
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "[%s] =========================\n", label);
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "[%s] alias : %s\n", label, e->alias);
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "[%s] id : %d\n", label, e->id);
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "[%s] userid : %d\n", label, e->userid);
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "[%s] flags : %d\n", label, e->flags);
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "[%s] version : %d\n", label, e->version);
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "[%s] isMigrating : %d\n", label, e->isMigrating);
}
