// "migration" over the "pelk" socket against real databases of the device.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sqlite_sdp/sqlite_sdp.h>

#include <string>
#include <vector>

#include "Daemon.h"
#include "support/Files.h"

namespace {

using Lines = std::vector<std::string>;

bool makeDb(const std::string& path) {
    testfs::makeDirs(path.substr(0, path.rfind('/')));
    sqlite3* db = nullptr;
    bool ok = sqlite3_open(path.c_str(), &db) == SQLITE_OK &&
              sqlite3_exec(db, "create table t(a, b)", nullptr, nullptr, nullptr) == SQLITE_OK;
    sqlite3_close(db);
    return ok;
}

bool hasTable(const std::string& path) {
    sqlite3* db = nullptr;
    bool ok = sqlite3_open(path.c_str(), &db) == SQLITE_OK &&
              sqlite3_exec(db, "select count(*) from t", nullptr, nullptr, nullptr) == SQLITE_OK;
    sqlite3_close(db);
    return ok;
}

class Migration : public e2e::DaemonTest {
protected:
    Lines send(const std::string& lines) { return e2e::pelkctl({}, lines).lines; }
    int loggedError(const std::string& text) { return liblog_count(text, "pelkd", ANDROID_LOG_ERROR, LOG_ID_SYSTEM); }
};

TEST_F(Migration, MirelDbStepsAnswerSuccessOrFailed) {
    const std::string db = "/data/user/10/com.example.notes/databases/notes.db";
    ASSERT_TRUE(makeDb(db));
    EXPECT_EQ((Lines{"281 1 failed"}), send("migration 10 mirel_db set_engine_id " + db + "\n"));
    EXPECT_EQ(1, loggedError("migration mirel_db error : -1"));

    EXPECT_EQ((Lines{"200 1 success", "200 2 success", "200 3 success"}),
              send("migration 10 mirel_db set_sensitive_from_db1 " + db +
                   " t a,b\n"
                   "migration 11 mirel_db set_engine_id " +
                   db +
                   "\n"
                   "migration 11 mirel_db set_engine_id " +
                   db + "\n"));
    EXPECT_EQ("engine_id=11\ntable=t;columns=a,b;olddbisdb1=true\n", testfs::readFile(db + SQLITE_SDP_SIDE_SUFFIX));
    EXPECT_EQ(1, loggedError("migrateEngineId : Already migrated..."));

    EXPECT_EQ((Lines{"281 1 failed"}),
              send("migration 10 mirel_db set_sensitive_from_db1 " + db + " \"t\\\"); drop table t; --\" a\n"));
    EXPECT_TRUE(hasTable(db));
}

TEST_F(Migration, OtherKindsDataAndTooFewWords) {
    EXPECT_EQ((Lines{"281 1 failed", "200 2 success", "281 3 failed"}),
              send("migration 10 files anything\nmigration 12 data anything\nmigration 10 mirel_db x extra\n"));
    EXPECT_EQ(1, loggedError("migration files error : -1"));
    EXPECT_EQ(1, loggedError("DATA MIGRATION :: personaId:12 "));
    EXPECT_EQ(1, loggedError("mirelDbmigration :: unknow command : x\n"));

    EXPECT_EQ((Lines{"501 1 given argc [3] != expected [0]"}), send("migration 10 mirel_db\n"));
    EXPECT_EQ(1, loggedError("FATAL: Migration Param num has to be more than 4 [argc:3]"));
}

}  // namespace
