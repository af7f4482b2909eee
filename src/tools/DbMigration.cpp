// The migration sub-commands, by name.
#define LOG_TAG "pelkd"

#include "tools/DbMigration.h"

#include <log/log.h>
#include <string.h>

#include "tools/MirelDbSteps.h"

namespace {

constexpr size_t kWordSize = 255;

bool isSubCommand(const char* word, const char* name) { return strncmp(word, name, kWordSize) == 0; }

}  // namespace

int mirelDbmigration(int personaId, const char* subCommand, int argc, const char** argv) {
    SLOGE("MIREL DB MIGRATION :: personaId:%d subCmd:%s", personaId, subCommand);
    if (isSubCommand(subCommand, "set_sensitive_from_db1")) {
        if (argc < 3) {
            // Three are enough; the wording has always said otherwise.
            SLOGE("argc has to be bigger than 3 [argc:%d]", argc);
            return -1;
        }
        return migratedb1todb2(argv[0], argv[1], argv[2], personaId);
    }
    if (isSubCommand(subCommand, "set_engine_id")) {
        if (argc < 1) {
            SLOGE("argc has to be 1 at least [argc:%d]", argc);
            return -1;
        }
        SLOGD("dbName:%s\nengineId:%d\n", argv[0], personaId);
        return migrateEngineId(argv[0], personaId);
    }
    SLOGE("%s :: unknow command : %s\n", "mirelDbmigration", subCommand);
    return -1;
}

int dataMigration(int personaId) {
    SLOGE("DATA MIGRATION :: personaId:%d ", personaId);
    return 0;
}
