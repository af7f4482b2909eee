// The host's sensitive-data pragmas, asked through plain SQLite connections
// as any program of the device asks them.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sqlite_sdp/sqlite_sdp.h>
#include <string.h>

#include <string>
#include <vector>

#include "support/Files.h"

namespace {

const std::string kDb = "/data/sdp/notes.db";
const std::string kSide = kDb + SQLITE_SDP_SIDE_SUFFIX;

// One connection; query() answers every row's first column, or {"error: .."}.
class Connection {
public:
    explicit Connection(const std::string& path) {
        testfs::makeDirs(path.substr(0, path.rfind('/')));
        sqlite3_open(path.c_str(), &db_);
    }
    ~Connection() { sqlite3_close(db_); }
    std::vector<std::string> query(const std::string& sql) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
            return {std::string("error: ") + sqlite3_errmsg(db_)};
        }
        std::vector<std::string> rows;
        int rc;
        while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
            const unsigned char* text = sqlite3_column_text(statement, 0);
            rows.push_back(text ? reinterpret_cast<const char*>(text) : "<null>");
        }
        if (rc != SQLITE_DONE) rows = {std::string("error: ") + sqlite3_errmsg(db_)};
        sqlite3_finalize(statement);
        return rows;
    }

private:
    sqlite3* db_ = nullptr;
};

using Rows = std::vector<std::string>;

}  // namespace

TEST(SensitivePragmas, TheShimIsTheDefaultVfs) {
    ASSERT_NE(nullptr, sqlite3_vfs_find(nullptr));
    EXPECT_STREQ(SQLITE_SDP_VFS_NAME, sqlite3_vfs_find(nullptr)->zName);
}

TEST(SensitivePragmas, ADbBecomesSensitiveOnlyByDeclaringColumns) {
    Connection db(kDb);
    ASSERT_EQ(Rows{}, db.query("create table notes(title text, body text)"));
    EXPECT_EQ(Rows{}, db.query("pragma mirel_get_engine_id"));  // never sensitive: no row
    EXPECT_EQ(Rows{"error: not a sensitive database"}, db.query("pragma mirel_set_engine_id(\"engine_id=3\")"));
    EXPECT_FALSE(testfs::exists(kSide));

    EXPECT_EQ(Rows{}, db.query("pragma set_sensitive_columns(\"table=notes;columns=body;engine_id=10;\")"));
    EXPECT_EQ(Rows{"10"}, db.query("PRAGMA MIREL_GET_ENGINE_ID"));
    EXPECT_EQ(Rows{}, db.query("pragma set_sensitive_columns(\"table=notes;columns=title,body;engine_id=12;"
                               "olddbisdb1=true;\")"));
    EXPECT_EQ(Rows{}, db.query("pragma mirel_set_engine_id(\"engine_id=-4\")"));
    EXPECT_EQ(Rows{"-4"}, db.query("pragma mirel_get_engine_id"));
    EXPECT_EQ(
        "engine_id=-4\n"
        "table=notes;columns=body;olddbisdb1=\n"
        "table=notes;columns=title,body;olddbisdb1=true\n",
        testfs::readFile(kSide));

    // A second connection sees the same; SQLite's own pragmas still work.
    Connection again(kDb);
    EXPECT_EQ(Rows{"-4"}, again.query("pragma mirel_get_engine_id"));
    EXPECT_EQ(Rows{}, again.query("pragma user_version = 7"));
    EXPECT_EQ(Rows{"7"}, again.query("pragma user_version"));
}

TEST(SensitivePragmas, MalformedArgumentsAndFilesThatAreNotDatabases) {
    Connection db(kDb);
    ASSERT_EQ(Rows{}, db.query("create table t(a)"));
    for (const char* bad : {"pragma set_sensitive_columns(\"table=t;columns=a\")",
                            "pragma set_sensitive_columns(\"table=t;engine_id=1\")",
                            "pragma set_sensitive_columns(\"columns=a;engine_id=1\")",
                            "pragma set_sensitive_columns(\"table=t;columns=a;engine_id=1x\")",
                            "pragma set_sensitive_columns(\"garbage\")", "pragma set_sensitive_columns"}) {
        Rows rows = db.query(bad);
        ASSERT_EQ(1u, rows.size()) << bad;
        EXPECT_EQ(0u, rows[0].rfind("error: set_sensitive_columns: expected", 0)) << bad << " -> " << rows[0];
    }
    EXPECT_FALSE(testfs::exists(kSide));
    EXPECT_EQ(Rows{}, db.query("pragma set_sensitive_columns(\"table=t;columns=a;engine_id=1\")"));
    EXPECT_EQ(Rows{"error: mirel_set_engine_id: expected \"engine_id=N\""},
              db.query("pragma mirel_set_engine_id(\"engine_id=99999999999\")"));

    const std::string notDb = "/data/sdp/notes.txt";
    ASSERT_TRUE(testfs::writeFile(notDb, std::string(64, 'n')));
    Connection text(notDb);
    EXPECT_EQ(Rows{"error: file is not a database"},
              text.query("pragma set_sensitive_columns(\"table=t;columns=a;engine_id=1\")"));
    EXPECT_FALSE(testfs::exists(notDb + SQLITE_SDP_SIDE_SUFFIX));
    EXPECT_EQ(std::string(64, 'n'), testfs::readFile(notDb));
}
