// Migration of a container's sensitive-data databases and data. The databases
// are SQLite files whose sensitive columns a SQLite extension handles; it is
// reached only through pragma statements on an ordinary connection.
#pragma once

// One step for one database of container `personaId` (also its engine id).
// `argv` holds the sub-command's `argc` arguments, not the sub-command:
//   "set_sensitive_from_db1" <db> <table> <columns>: declares the columns
//       sensitive and marks the db converted from the old format. A db that
//       does not exist answers 0 (nothing to migrate). A table or column list
//       holding a double quote, a semicolon or a control character is
//       refused with -1 before the db is touched.
//   "set_engine_id" <db>: records personaId as the db's engine id. 0 when it
//       already has it (nothing written) and, kept as callers know it, also
//       when the setting statement fails; -1 when the db has no engine id
//       (not sensitive, or no extension) or a negative one.
// Any other sub-command answers -1. Results: 0 or -1.
int mirelDbmigration(int personaId, const char* subCommand, int argc, const char** argv);

// The hook for migrating a container's whole data: it only logs. Answers 0.
int dataMigration(int personaId);
