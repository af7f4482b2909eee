// What the sensitive-data extension knows of one database, kept in a text
// file beside it (see sqlite_sdp/sqlite_sdp.h for the format).
#pragma once

#include <string>
#include <vector>

namespace sqlitesdp {

struct SensitiveRecord {
    int engineId = -1;
    std::vector<std::string> declarations;  // "table=T;columns=C;olddbisdb1=B"
};

std::string sidePath(const char* dbPath);

// False when the db was never made sensitive (no side file) or the file
// cannot be read as a record.
bool loadRecord(const char* dbPath, SensitiveRecord* record);

// Replaces the side file as a whole; false when it cannot be written.
bool storeRecord(const char* dbPath, const SensitiveRecord& record);

}  // namespace sqlitesdp
