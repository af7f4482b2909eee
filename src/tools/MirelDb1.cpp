// Converting an old-format ("db1") database: one pragma that declares its
// sensitive columns.
#define LOG_TAG "pelkd"

#include <ctype.h>
#include <log/log.h>
#include <stdio.h>

#include "tools/FileExist.h"
#include "tools/MirelDbSteps.h"
#include "tools/SqliteDb.h"

namespace {

constexpr size_t kStatementSize = 4096;

// The table and columns are formatted into the statement that sqlite3_exec
// runs whole, every statement in it. A double quote would end the pragma's
// argument (and let what follows run as SQL of its own), a semicolon would
// split its fields: input holding either, or a control character, is refused.
bool isPragmaSafe(const char* word) {
    for (const char* c = word; *c; ++c) {
        if (*c == '"' || *c == ';' || iscntrl(static_cast<unsigned char>(*c))) return false;
    }
    return true;
}

}  // namespace

int migratedb1todb2(const char* dbPath, const char* table, const char* columns, int engineId) {
    // The stray "n" closing this line has always been there.
    SLOGE(" dbName:%s\n tblName:%s\n cols:%s engineId:%dn", dbPath, table, columns, engineId);
    if (!isPragmaSafe(table) || !isPragmaSafe(columns)) {
        SLOGE("migratedb1todb2 : refused a table or column list holding a quote, a semicolon or a control character");
        return -1;
    }
    if (!isFileExist(dbPath)) {
        SLOGE("\n%s : %s doesn't exist! nothing to migrate.\n", "migratedb1todb2", dbPath);
        return 0;
    }
    sqlite3* raw = nullptr;
    int rc = sqlite3_open(dbPath, &raw);
    pelk::SqliteDb db(raw);
    if (rc != SQLITE_OK) {
        SLOGE("\nCan't open/create database: %s\n", sqlite3_errmsg(db.get()));
        return -1;
    }
    char statement[kStatementSize];
    snprintf(statement, sizeof(statement),
             "pragma set_sensitive_columns (\"table=%s;columns=%s;engine_id=%d;olddbisdb1=true;\");", table, columns,
             engineId);
    rc = sqlite3_exec(db.get(), statement, nullptr, nullptr, nullptr);
    if (rc != SQLITE_OK) {
        SLOGE("\nError[%d]: Can't execute migrate db1 to db2 statement (%s) database: %s\n", rc, statement,
              sqlite3_errmsg(db.get()));
        return -1;
    }
    return 0;
}
