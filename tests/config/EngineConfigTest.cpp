#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <string>

#include "config/EngineConfig.h"
#include "support/Files.h"

namespace {

using testfs::lines;
using testfs::readFile;
using testfs::writeFile;

const char kListFile[] = "/data/system/users/mirel_engine_list.xml";
const char kSecureFsFile[] = "/data/system/users/secure_fs.xml";

void writeEngineFile(int user, const std::string& xml) {
    std::string dir = "/data/system/users/" + std::to_string(user);
    mkdir(dir.c_str(), 0700);
    writeFile(dir + "/MirelUser" + std::to_string(user) + ".xml", xml);
}

void writeUserEngine(int user, const std::string& alias) {
    writeEngineFile(user, "<user alias=\"" + alias + "\" id=\"" + std::to_string(user) + "\" userid=\"0\"/>");
}

struct Free {
    void operator()(engine* e) const { free(e); }
    void operator()(engine_list* l) const { free_engines(l); }
    void operator()(secure_fs* f) const { free_secure_fs(f); }
};
template <typename T>
using Owned = std::unique_ptr<T, Free>;

class EngineConfig : public testing::Test {
protected:
    void SetUp() override { liblog_clear(); }
};

}  // namespace

TEST_F(EngineConfig, UserAttributesAndTheirDefaults) {
    writeEngineFile(3, "<user id=\"3\"/>");
    Owned<engine> bare(get_engine(3));
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->id, 3);
    EXPECT_EQ(bare->userid, -1);
    EXPECT_EQ(bare->flags + bare->version + bare->isMigrating, 0);
    EXPECT_STREQ(bare->alias, "");
    EXPECT_EQ(liblog_count("[engine] user\n", "", ANDROID_LOG_ERROR), 1);

    writeEngineFile(5,
                    "<?xml version=\"1.0\"?><!-- c --><user alias=\"work\" id=\"5\" userid=\"150\" flags=\"6x\" "
                    "version=\"junk\" isMigrating=\"true\"/>");
    Owned<engine> full(get_engine(5));
    ASSERT_TRUE(full);
    EXPECT_STREQ(full->alias, "work");
    EXPECT_EQ(full->userid, 150);
    EXPECT_EQ(full->flags, 6);  // atoi reads the leading digits
    EXPECT_EQ(full->version, 0);
    EXPECT_EQ(full->isMigrating, 1);
}

TEST_F(EngineConfig, OnlyLowerCaseTrueMarksMigration) {
    for (const char* value : {"TRUE", "1", "true "}) {
        writeEngineFile(4, std::string("<user id=\"4\" isMigrating=\"") + value + "\"/>");
        Owned<engine> e(get_engine(4));
        ASSERT_TRUE(e) << value;
        EXPECT_EQ(e->isMigrating, 0) << value;
    }
}

TEST_F(EngineConfig, AliasOf511IsKeptAnd512LeftEmpty) {
    writeUserEngine(8, std::string(511, 'a'));
    Owned<engine> kept(get_engine(8));
    ASSERT_TRUE(kept);
    EXPECT_EQ(std::string(kept->alias), std::string(511, 'a'));
    writeUserEngine(8, std::string(512, 'b'));
    Owned<engine> dropped(get_engine(8));
    ASSERT_TRUE(dropped);
    EXPECT_STREQ(dropped->alias, "");
}

TEST_F(EngineConfig, OnlyARootLevelUserCounts) {
    writeEngineFile(9, "<users><user alias=\"deep\" id=\"9\"/></users>");
    EXPECT_EQ(get_engine(9), nullptr);
    EXPECT_EQ(liblog_count("[engine] user\n"), 1);  // read all the same, then dropped
    writeEngineFile(9, "<user><!-- no attributes --></user>");
    EXPECT_EQ(get_engine(9), nullptr);
}

TEST_F(EngineConfig, MissingOrMalformedFilesFailWithTheirPath) {
    EXPECT_EQ(get_engine(11), nullptr);
    EXPECT_EQ(liblog_count("Failed to parse /data/system/users/11/MirelUser11.xml\n", "", ANDROID_LOG_ERROR), 1);
    writeEngineFile(12, "<user id=\"12\"");
    EXPECT_EQ(get_engine(12), nullptr);
    EXPECT_EQ(liblog_count("Failed to parse /data/system/users/12/MirelUser12.xml\n"), 1);
    writeFile(kListFile, "<engines>");
    EXPECT_EQ(get_engines(), nullptr);
    EXPECT_EQ(liblog_count(std::string("Failed to parse ") + kListFile + "\n", "", ANDROID_LOG_INFO, LOG_ID_SYSTEM), 1);
}

TEST_F(EngineConfig, ListLoadsEnginesInDocumentOrderAtAnyDepth) {
    writeUserEngine(20, "first");
    writeUserEngine(21, "second");
    writeFile(kListFile,
              "<engines><a><engine alias=\"first\" id=\"20\"/></a><b><c><engine alias=\"second\" id=\"21\"/>"
              "</c></b></engines>");
    Owned<engine_list> list(get_engines());
    ASSERT_TRUE(list);
    ASSERT_EQ(list->count, 2);
    EXPECT_STREQ(list->engines[0]->alias, "first");
    EXPECT_STREQ(list->engines[1]->alias, "second");
    for (const char* line : {"URL: /data/system/users/mirel_engine_list.xml\n", "   [list] alias : second\n",
                             "   [list] engine_id : 21\n"})
        EXPECT_EQ(liblog_count(line, "", ANDROID_LOG_INFO, LOG_ID_SYSTEM), 1) << line;
    free_engines(list.release());
    EXPECT_EQ(liblog_count("[freeing] engine : first[20, 0]\n", "", ANDROID_LOG_INFO, LOG_ID_SYSTEM), 1);
}

TEST_F(EngineConfig, ListKeepsOnlyEnginesWhoseFilesLoad) {
    writeFile(kListFile,
              "<engines><engine alias=\"a\" id=\"30\"/><engine alias=\"b\" id=\"31\"/>"
              "<engine alias=\"no id\"/></engines>");
    EXPECT_EQ(get_engines(), nullptr);  // no per-user file exists
    writeUserEngine(31, "b");
    Owned<engine_list> list(get_engines());
    ASSERT_TRUE(list);
    ASSERT_EQ(list->count, 1);
    EXPECT_EQ(list->engines[0]->id, 31);
}

TEST_F(EngineConfig, ElementAfterAnEngineListsItTwiceAndIsFreedOnce) {
    writeUserEngine(40, "twice");
    writeFile(kListFile, "<engines>\n  <engine alias=\"twice\" id=\"40\"/>\n  <note/>\n</engines>");
    Owned<engine_list> list(get_engines());
    ASSERT_TRUE(list);
    ASSERT_EQ(list->count, 2);
    EXPECT_EQ(list->engines[0], list->engines[1]);
    free_engines(list.release());  // ASan would catch a double free
    EXPECT_EQ(liblog_count("[freeing] engine : twice[40, 0]\n"), 2);
}

TEST_F(EngineConfig, ListNeverGrowsPastItsCapacity) {
    writeUserEngine(50, "many");
    std::string xml = "<engines>";
    for (int i = 0; i < kEngineListCapacity + 5; ++i) xml += "<engine alias=\"many\" id=\"50\"/>";
    writeFile(kListFile, xml + "</engines>");
    Owned<engine_list> list(get_engines());
    ASSERT_TRUE(list);
    EXPECT_EQ(list->count, kEngineListCapacity);
}

TEST_F(EngineConfig, SecureFsOnlyAtRootLevelAndWithAttributes) {
    writeFile(kSecureFsFile, "<secure_fs quarnVersion=\"4\" version=\"2\"/>");
    Owned<secure_fs> fs(get_secure_fs());
    ASSERT_TRUE(fs);
    EXPECT_EQ(fs->version, 2);
    EXPECT_STREQ(fs->quarnVersion, "4");
    EXPECT_EQ(liblog_count("   [list] quarn_version : 4\n", "", ANDROID_LOG_INFO, LOG_ID_SYSTEM), 1);

    writeFile(kSecureFsFile, "<device><secure_fs quarnVersion=\"4\" version=\"2\"/></device>");
    EXPECT_EQ(get_secure_fs(), nullptr);
    writeFile(kSecureFsFile, "<secure_fs/>");
    EXPECT_EQ(get_secure_fs(), nullptr);
    writeFile(kSecureFsFile, "<secure_fs quarnVersion=\"" + std::string(512, 'v') + "\"/>");
    Owned<secure_fs> longVersion(get_secure_fs());
    ASSERT_TRUE(longVersion);
    EXPECT_STREQ(longVersion->quarnVersion, "");
}

TEST_F(EngineConfig, DumpLogsSevenLabelledLines) {
    dump_engine("adding-chamber", nullptr);
    EXPECT_TRUE(liblog_records().empty());
    engine e{};
    snprintf(e.alias, sizeof(e.alias), "work");
    e.id = 7;
    e.userid = 150;
    e.flags = 2;
    e.isMigrating = 1;
    dump_engine("adding-chamber", &e);
    const char* want[] = {"=========================",
                          "alias : work",
                          "id : 7",
                          "userid : 150",
                          "flags : 2",
                          "version : 0",
                          "isMigrating : 1"};
    auto records = liblog_records();
    ASSERT_EQ(records.size(), 7u);
    for (size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(records[i].text, std::string("[adding-chamber] ") + want[i] + "\n");
        EXPECT_EQ(records[i].priority, ANDROID_LOG_ERROR);
    }
}
