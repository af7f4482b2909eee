// The extension's three pragmas, answered for one main database file.
#pragma once

#include <sqlite3.h>

namespace sqlitesdp {

// Answers an SQLITE_FCNTL_PRAGMA file control for the database at dbPath,
// whose own file (below the shim) is `file`. `args` is SQLite's array: [1]
// the pragma's name, [2] its argument or null; [0] receives the one-row
// answer or the error text (sqlite3_mprintf'd). SQLITE_NOTFOUND for a pragma
// that is not the extension's, so SQLite handles it as usual.
int answerPragma(const char* dbPath, sqlite3_file* file, char** args);

}  // namespace sqlitesdp
