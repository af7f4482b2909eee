// Readers of the sensitive-data engine files and of the secure-filesystem
// file under "/data/system/users". Other components write these files; the
// engine only reads them into zero-filled heap records that the caller owns.
#pragma once

#include <libxml/tree.h>
#include <stdint.h>

// Size of the text fields and of the path buffers of the readers.
constexpr int kEngineTextSize = 512;
constexpr int kEnginePathSize = 4096;
// The list file may name at most this many engines.
constexpr int kEngineListCapacity = 128;

// One engine of one user. Freed with free() when it stands alone, or by
// free_engines() when a list holds it.
struct engine {
    char alias[kEngineTextSize];  // empty when the attribute was 512 characters or more
    int32_t id;                   // also the user under whose folder its file lives; -1 if absent
    int32_t userid;               // owning Android user; -1 if absent
    int32_t flags;                // bit 2: the engine has a chamber directory
    int32_t version;
    int32_t isMigrating;              // 1 only for isMigrating="true"
    char spareText[kEngineTextSize];  // never filled by the reader
    int32_t spare;                    // never filled by the reader
};

// Engines in the order in which the list file names them.
struct engine_list {
    engine* engines[kEngineListCapacity];
    int32_t count;
};

// Present only when the device announces the secure filesystem.
struct secure_fs {
    char quarnVersion[kEngineTextSize];  // empty when 512 characters or more
    int32_t version;
    int32_t spare;  // always 0
};

// Path writers: they format into a caller buffer of kEnginePathSize bytes and
// answer the formatted length.
int get_engine_xml_path(int userId, char* path);
int get_engine_list_xml_path(char* path);
int get_secure_fs_xml_path(char* path);

// The per-user engine file of `id`, or null.
engine* get_engine(int id);
// The list file and every engine it names, or null when none could be read.
engine_list* get_engines();
void free_engines(engine_list* list);

secure_fs* get_secure_fs();
void free_secure_fs(secure_fs* fs);

// Logs one engine under a label; a null engine is ignored.
void dump_engine(char const* label, engine* e);
// True exactly when both are non-null and equal byte for byte.
bool compare_string(const char* a, const char* b);

// The "user" element search of get_engine: only an element at the level of
// `node` yields a record; nested ones are parsed and dropped.
engine* parse(xmlNode* node);
// The depth-first "engine" element walk of get_engines; a null list only
// loads and logs.
void parse(xmlNode* node, engine_list* list);
