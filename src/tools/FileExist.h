// Whether a path exists, for the file tools and the database migration.
#pragma once

// 1 when stat (links followed) succeeds, else 0 after logging why.
int isFileExist(const char* path);
