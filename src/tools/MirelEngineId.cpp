// A database's engine id: read it, and set it to the container's when it
// differs.
#define LOG_TAG "pelkd"

#include <log/log.h>
#include <stdio.h>

#include "tools/FileExist.h"
#include "tools/MirelDbSteps.h"
#include "tools/SqliteDb.h"

namespace {

constexpr size_t kStatementSize = 4096;

// Opens an existing db; logs with `who` and answers false when it is missing
// or cannot be opened.
bool openExisting(const char* dbPath, const char* who, pelk::SqliteDb* db) {
    if (!isFileExist(dbPath)) {
        SLOGE("%s : %s doesn't exist!", who, dbPath);
        return false;
    }
    sqlite3* raw = nullptr;
    int rc = sqlite3_open(dbPath, &raw);
    db->reset(raw);
    if (rc == SQLITE_OK) return true;
    SLOGE("%s : Can't open database - %s\n", who, sqlite3_errmsg(raw));
    return false;
}

// True with the id when the engine-id pragma answered a row.
bool getEngineId(const char* dbPath, int* engineId) {
    pelk::SqliteDb db;
    if (!openExisting(dbPath, "getEngineId", &db)) return false;
    sqlite3_stmt* raw = nullptr;
    sqlite3_prepare_v2(db.get(), "pragma mirel_get_engine_id;", -1, &raw, nullptr);
    pelk::SqliteStatement statement(raw);
    if (!statement || sqlite3_step(statement.get()) != SQLITE_ROW) return false;
    if (sqlite3_column_count(statement.get()) < 1) return false;
    *engineId = sqlite3_column_int(statement.get(), 0);
    return true;
}

int setEngineId(const char* dbPath, int engineId) {
    pelk::SqliteDb db;
    if (!openExisting(dbPath, "setEngineId", &db)) return -1;
    char statement[kStatementSize];
    snprintf(statement, sizeof(statement), "pragma mirel_set_engine_id(\"engine_id=%d\");", engineId);
    char* error = nullptr;
    if (sqlite3_exec(db.get(), statement, nullptr, nullptr, &error) != SQLITE_OK) {
        SLOGE("setEngineId : Failed in query(%s)", statement);
    }
    sqlite3_free(error);
    // A failed query still counts as set: callers have always seen 0 here.
    return 0;
}

}  // namespace

int migrateEngineId(const char* dbPath, int engineId) {
    int current = 0;
    if (!getEngineId(dbPath, &current)) {
        SLOGE("migrateEngineId : Failed to get engine id");
        return -1;
    }
    if (current < 0) {
        SLOGE("migrateEngineId : Maybe trying on non-sensitive db");
        return -1;
    }
    if (current == engineId) {
        SLOGE("migrateEngineId : Already migrated...");
        return 0;
    }
    int result = setEngineId(dbPath, engineId);
    SLOGE("migrateEngineId : result = %d", result);
    return result;
}
