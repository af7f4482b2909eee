// Sensitive-data SQLite extension (closed; host edition: platform/sqlite_sdp).
//
// On the device the extension lives inside SQLite; the daemon reaches it only
// through pragma statements on an ordinary connection:
//   pragma set_sensitive_columns("table=T;columns=C;engine_id=N;olddbisdb1=B;")
//       declares C of T sensitive for engine N and makes the db sensitive;
//   pragma mirel_get_engine_id     one row with the engine id, or no row at
//       all when the db was never made sensitive (as without the extension);
//   pragma mirel_set_engine_id("engine_id=N")  fails on a db never made
//       sensitive.
// A file that is not a SQLite database fails the first and the last.
//
// The host edition answers them in a VFS that wraps the default one and is
// made the default when the program starts (linking the platform is enough;
// nothing is called). It keeps what it is told beside the database, in
// "<db>" SQLITE_SDP_SIDE_SUFFIX, as text a test can read back:
//   engine_id=N
//   table=T;columns=C;olddbisdb1=B      one line per declaration, in order
#pragma once

#define SQLITE_SDP_SIDE_SUFFIX "-mirel"
#define SQLITE_SDP_VFS_NAME "mirel_sdp"
