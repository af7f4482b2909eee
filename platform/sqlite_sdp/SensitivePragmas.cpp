// set_sensitive_columns, mirel_get_engine_id and mirel_set_engine_id.
#include "SensitivePragmas.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <string>

#include "SensitiveRecord.h"

namespace sqlitesdp {
namespace {

using Fields = std::map<std::string, std::string>;

// "k1=v1;k2=v2;..." (a trailing ";" allowed); false for a field without "=".
bool parseFields(const char* text, Fields* fields) {
    std::string all(text ? text : "");
    for (size_t start = 0; start < all.size();) {
        size_t end = all.find(';', start);
        if (end == std::string::npos) end = all.size();
        std::string field = all.substr(start, end - start);
        size_t equals = field.find('=');
        if (equals == std::string::npos) return false;
        (*fields)[field.substr(0, equals)] = field.substr(equals + 1);
        start = end + 1;
    }
    return true;
}

bool parseEngineId(const Fields& fields, int* id) {
    auto it = fields.find("engine_id");
    if (it == fields.end() || it->second.empty()) return false;
    char* end = nullptr;
    errno = 0;
    long value = strtol(it->second.c_str(), &end, 10);
    if (*end != '\0' || errno != 0 || value < -2147483647L - 1 || value > 2147483647L) return false;
    *id = static_cast<int>(value);
    return true;
}

int fail(char** args, int code, const char* text) {
    args[0] = sqlite3_mprintf("%s", text);
    return code;
}

// An empty file is a database yet to be written; anything else must carry
// SQLite's header.
bool isDatabase(sqlite3_file* file) {
    sqlite3_int64 size = 0;
    if (file->pMethods->xFileSize(file, &size) != SQLITE_OK) return false;
    if (size == 0) return true;
    static const char kHeader[] = "SQLite format 3";  // with its terminator: 16 bytes
    char header[sizeof(kHeader)] = {};
    if (file->pMethods->xRead(file, header, sizeof(header), 0) != SQLITE_OK) return false;
    return memcmp(header, kHeader, sizeof(kHeader)) == 0;
}

int getEngineId(const char* dbPath, char** args) {
    SensitiveRecord record;
    // Never made sensitive: no row, as SQLite answers without the extension.
    if (loadRecord(dbPath, &record)) args[0] = sqlite3_mprintf("%d", record.engineId);
    return SQLITE_OK;
}

int setEngineId(const char* dbPath, sqlite3_file* file, const char* argument, char** args) {
    Fields fields;
    int id;
    if (!parseFields(argument, &fields) || !parseEngineId(fields, &id)) {
        return fail(args, SQLITE_ERROR, "mirel_set_engine_id: expected \"engine_id=N\"");
    }
    if (!isDatabase(file)) return fail(args, SQLITE_NOTADB, "file is not a database");
    SensitiveRecord record;
    if (!loadRecord(dbPath, &record)) return fail(args, SQLITE_ERROR, "not a sensitive database");
    record.engineId = id;
    return storeRecord(dbPath, record) ? SQLITE_OK : fail(args, SQLITE_IOERR, "cannot keep the engine id");
}

int setSensitiveColumns(const char* dbPath, sqlite3_file* file, const char* argument, char** args) {
    Fields fields;
    int id;
    if (!parseFields(argument, &fields) || !parseEngineId(fields, &id) || fields["table"].empty() ||
        fields["columns"].empty()) {
        return fail(args, SQLITE_ERROR, "set_sensitive_columns: expected \"table=T;columns=C;engine_id=N;\"");
    }
    if (!isDatabase(file)) return fail(args, SQLITE_NOTADB, "file is not a database");
    SensitiveRecord record;
    loadRecord(dbPath, &record);
    record.engineId = id;
    record.declarations.push_back("table=" + fields["table"] + ";columns=" + fields["columns"] +
                                  ";olddbisdb1=" + fields["olddbisdb1"]);
    return storeRecord(dbPath, record) ? SQLITE_OK : fail(args, SQLITE_IOERR, "cannot keep the declaration");
}

}  // namespace

int answerPragma(const char* dbPath, sqlite3_file* file, char** args) {
    const char* name = args[1];
    const char* argument = args[2];
    if (sqlite3_stricmp(name, "mirel_get_engine_id") == 0) return getEngineId(dbPath, args);
    if (sqlite3_stricmp(name, "mirel_set_engine_id") == 0) return setEngineId(dbPath, file, argument, args);
    if (sqlite3_stricmp(name, "set_sensitive_columns") == 0) {
        return setSensitiveColumns(dbPath, file, argument, args);
    }
    return SQLITE_NOTFOUND;
}

}  // namespace sqlitesdp
