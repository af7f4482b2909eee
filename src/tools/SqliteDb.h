// Owners of a SQLite connection and a prepared statement. sqlite3_open hands
// out a connection even when it fails, so the owner closes that one too.
#pragma once

#include <sqlite3.h>

#include "base/UniqueHandle.h"

namespace pelk {

using SqliteDb = UniqueHandle<sqlite3, sqlite3_close>;
using SqliteStatement = UniqueHandle<sqlite3_stmt, sqlite3_finalize>;

}  // namespace pelk
