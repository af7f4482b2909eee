// The two database steps behind mirelDbmigration, each over one db file.
#pragma once

// Declares `columns` of `table` sensitive for `engineId` and marks the db as
// converted from the old format. 0 when done or when the db does not exist;
// -1 when the input is refused, the db cannot be opened or the statement
// fails.
int migratedb1todb2(const char* dbPath, const char* table, const char* columns, int engineId);

// Records `engineId` in the db unless it has it already. 0 when done or
// already there (a failed setting statement still answers 0); -1 when no
// engine id can be read or it is negative.
int migrateEngineId(const char* dbPath, int engineId);
