// The database migration over real SQLite files, with the device's
// sensitive-data extension answering the pragmas.
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <sqlite3.h>
#include <sqlite_sdp/sqlite_sdp.h>

#include <string>
#include <vector>

#include "support/Files.h"
#include "tools/DbMigration.h"
#include "tools/FileExist.h"
#include "tools/SqliteDb.h"

namespace {

const std::string kDir = "/data/mig";
const std::string kDb = kDir + "/app.db";
const std::string kSide = kDb + SQLITE_SDP_SIDE_SUFFIX;

bool run(const std::string& path, const char* sql) {
    testfs::makeDirs(kDir);
    sqlite3* raw = nullptr;
    int rc = sqlite3_open(path.c_str(), &raw);
    pelk::SqliteDb db(raw);
    return rc == SQLITE_OK && sqlite3_exec(db.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool makeDb(const std::string& path = kDb) { return run(path, "create table t(a text, b text);"); }

int migrate(int persona, const char* sub, std::vector<std::string> args) {
    std::vector<const char*> argv;
    for (const std::string& a : args) argv.push_back(a.c_str());
    argv.push_back(nullptr);
    return mirelDbmigration(persona, sub, static_cast<int>(args.size()), argv.data());
}

int logged(const std::string& text) { return liblog_count(text, "pelkd", ANDROID_LOG_ERROR, LOG_ID_SYSTEM); }

}  // namespace

TEST(DbMigration, Db1DeclaresColumnsAndEngineIdThenSetEngineIdMovesIt) {
    ASSERT_TRUE(makeDb());
    EXPECT_EQ(0, migrate(10, "set_sensitive_from_db1", {kDb, "t", "a,b"}));
    EXPECT_EQ("engine_id=10\ntable=t;columns=a,b;olddbisdb1=true\n", testfs::readFile(kSide));
    EXPECT_EQ(1, logged("MIREL DB MIGRATION :: personaId:10 subCmd:set_sensitive_from_db1"));
    EXPECT_EQ(1, logged(" dbName:" + kDb + "\n tblName:t\n cols:a,b engineId:10n"));

    // Already there: nothing is written (the side file is replaced whole on
    // every write, so its inode tells).
    ino_t before = testfs::statOf(kSide).st_ino;
    EXPECT_EQ(0, migrate(10, "set_engine_id", {kDb}));
    EXPECT_EQ(1, logged("migrateEngineId : Already migrated..."));
    EXPECT_EQ(before, testfs::statOf(kSide).st_ino);
    EXPECT_EQ(1, liblog_count("dbName:" + kDb + "\nengineId:10\n", "pelkd", ANDROID_LOG_DEBUG, LOG_ID_SYSTEM));

    EXPECT_EQ(0, migrate(11, "set_engine_id", {kDb, "ignored"}));
    EXPECT_EQ(1, logged("migrateEngineId : result = 0"));
    EXPECT_EQ("engine_id=11\ntable=t;columns=a,b;olddbisdb1=true\n", testfs::readFile(kSide));
    EXPECT_TRUE(run(kDb, "insert into t values('x','y');"));  // still a working database
}

TEST(DbMigration, MissingDbsNonSensitiveDbsAndNegativeIds) {
    const std::string missing = kDir + "/none.db";
    EXPECT_EQ(0, migrate(10, "set_sensitive_from_db1", {missing, "t", "a"}));
    EXPECT_FALSE(testfs::exists(missing));
    EXPECT_EQ(1, logged("\nmigratedb1todb2 : " + missing + " doesn't exist! nothing to migrate.\n"));
    EXPECT_EQ(1, logged("isFileExist : " + missing + " error, No such file or directory\n"));

    EXPECT_EQ(-1, migrate(10, "set_engine_id", {missing}));
    EXPECT_EQ(1, logged("getEngineId : " + missing + " doesn't exist!"));
    EXPECT_FALSE(testfs::exists(missing));

    // A db never made sensitive: the pragma yields no row.
    ASSERT_TRUE(makeDb());
    EXPECT_EQ(-1, migrate(10, "set_engine_id", {kDb}));
    EXPECT_EQ(2, logged("migrateEngineId : Failed to get engine id"));
    EXPECT_FALSE(testfs::exists(kSide));

    const std::string negative = kDir + "/negative.db";
    ASSERT_TRUE(makeDb(negative));
    EXPECT_EQ(0, migrate(-5, "set_sensitive_from_db1", {negative, "t", "a"}));
    EXPECT_EQ(-1, migrate(10, "set_engine_id", {negative}));
    EXPECT_EQ(1, logged("migrateEngineId : Maybe trying on non-sensitive db"));
}

TEST(DbMigration, UnknownSubCommandsAndTooFewArguments) {
    EXPECT_EQ(-1, migrate(10, "set_engine_ids", {kDb}));
    EXPECT_EQ(1, logged("mirelDbmigration :: unknow command : set_engine_ids\n"));
    EXPECT_EQ(-1, migrate(10, "set_sensitive_from_db1", {kDb, "t"}));
    EXPECT_EQ(1, logged("argc has to be bigger than 3 [argc:2]"));
    EXPECT_EQ(-1, migrate(10, "set_engine_id", {}));
    EXPECT_EQ(1, logged("argc has to be 1 at least [argc:0]"));
    EXPECT_EQ(0, dataMigration(12));
    EXPECT_EQ(1, logged("DATA MIGRATION :: personaId:12 "));
}

TEST(DbMigration, QuotesAndSemicolonsInTheColumnListNeverReachSqlite) {
    ASSERT_TRUE(makeDb());
    const char* hostile[][2] = {
        // A well-formed pragma ahead of the drop: only the refusal stops it.
        {"t", "a;engine_id=1\"); drop table t; --"},
        {"t\"); drop table t; --", "a"},
        {"t", "a;engine_id=99"},
        {"t", "a\nb"},
    };
    for (const auto& input : hostile) {
        EXPECT_EQ(-1, migrate(10, "set_sensitive_from_db1", {kDb, input[0], input[1]})) << input[1];
    }
    EXPECT_EQ(4, logged("migratedb1todb2 : refused a table or column list holding a quote, a semicolon or a "
                        "control character"));
    EXPECT_TRUE(run(kDb, "select * from t;"));
    EXPECT_FALSE(testfs::exists(kSide));
}

TEST(DbMigration, AFileThatIsNotSqliteIsLeftAsItWas) {
    const std::string text = "plain text, not a database; long enough to have a header\n";
    ASSERT_TRUE(testfs::writeFile(kDb, text));
    EXPECT_EQ(-1, migrate(10, "set_sensitive_from_db1", {kDb, "t", "a"}));
    EXPECT_TRUE(
        liblog_any_contains("Can't execute migrate db1 to db2 statement (pragma set_sensitive_columns "
                            "(\"table=t;columns=a;engine_id=10;olddbisdb1=true;\");) database: "));
    EXPECT_EQ(-1, migrate(10, "set_engine_id", {kDb}));
    EXPECT_EQ(text, testfs::readFile(kDb));
    EXPECT_FALSE(testfs::exists(kSide));
}

TEST(FileExist, StatFollowsLinksAndLogsWhyNot) {
    ASSERT_TRUE(testfs::writeFile(kDir + "/here"));
    ASSERT_EQ(0, symlink("nowhere", (kDir + "/dangling").c_str()));
    EXPECT_EQ(1, isFileExist((kDir + "/here").c_str()));
    EXPECT_EQ(1, isFileExist(kDir.c_str()));
    EXPECT_EQ(0, isFileExist((kDir + "/dangling").c_str()));
    EXPECT_EQ(1, logged("isFileExist : " + kDir + "/dangling error, No such file or directory\n"));
}
