// sqlite-sim: the simulated device's database shell, with the device's
// sensitive-data extension (the shim every device program links).
//
//   sqlite-sim DB SQL
//
// Runs the statements of SQL on DB and prints each row, columns joined by
// "|" (NULL as an empty field). Exit status: 2 for a usage error, 1 when the
// db cannot be opened or a statement fails (SQLite's message on standard
// error), else 0.
#include <sqlite3.h>
#include <stdio.h>

namespace {

int printRow(void*, int columns, char** values, char**) {
    for (int i = 0; i < columns; ++i) printf("%s%s", i ? "|" : "", values[i] ? values[i] : "");
    printf("\n");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: sqlite-sim DB SQL\n");
        return 2;
    }
    sqlite3* db = nullptr;
    int rc = sqlite3_open(argv[1], &db);
    if (rc == SQLITE_OK) rc = sqlite3_exec(db, argv[2], printRow, nullptr, nullptr);
    if (rc != SQLITE_OK) fprintf(stderr, "sqlite-sim: %s\n", sqlite3_errmsg(db));
    sqlite3_close(db);
    return rc == SQLITE_OK ? 0 : 1;
}
