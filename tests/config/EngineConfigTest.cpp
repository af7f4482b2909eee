#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <sys/stat.h>

#include <fstream>
#include <string>

#include "config/EngineConfig.h"

namespace {

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
}

// The per-user engine file of `user`, with the given XML body.
void writeEngineFile(int user, const std::string& xml) {
    std::string dir = "/data/system/users/" + std::to_string(user);
    mkdir(dir.c_str(), 0700);
    writeFile(dir + "/MirelUser" + std::to_string(user) + ".xml", xml);
}

void writeUserEngine(int user, const std::string& alias) {
    writeEngineFile(user, "<user alias=\"" + alias + "\" id=\"" + std::to_string(user) +
                              "\" userid=\"0\" flags=\"2\" version=\"1\"/>");
}

struct EngineFree {
    void operator()(engine* e) const { free(e); }
};
using EnginePtr = std::unique_ptr<engine, EngineFree>;
struct ListFree {
    void operator()(engine_list* l) const { free_engines(l); }
};
using ListPtr = std::unique_ptr<engine_list, ListFree>;
struct FsFree {
    void operator()(secure_fs* f) const { free_secure_fs(f); }
};
using FsPtr = std::unique_ptr<secure_fs, FsFree>;

class EngineConfig : public testing::Test {
protected:
    void SetUp() override { liblog_clear(); }
};

}  // namespace

TEST_F(EngineConfig, PathsAreTheFixedLayout) {
    char path[kEnginePathSize];
    EXPECT_EQ(get_engine_xml_path(7, path), (int)strlen("/data/system/users/7/MirelUser7.xml"));
    EXPECT_STREQ(path, "/data/system/users/7/MirelUser7.xml");
    get_engine_list_xml_path(path);
    EXPECT_STREQ(path, "/data/system/users/mirel_engine_list.xml");
    EXPECT_EQ(get_secure_fs_xml_path(path), (int)strlen("/data/system/users/secure_fs.xml"));
    EXPECT_STREQ(path, "/data/system/users/secure_fs.xml");
}

TEST_F(EngineConfig, RootUserWithOnlyAnIdTakesDefaults) {
    writeEngineFile(3, "<user id=\"3\"/>");
    EnginePtr e(get_engine(3));
    ASSERT_TRUE(e);
    EXPECT_EQ(e->id, 3);
    EXPECT_EQ(e->userid, -1);
    EXPECT_EQ(e->flags, 0);
    EXPECT_EQ(e->version, 0);
    EXPECT_EQ(e->isMigrating, 0);
    EXPECT_STREQ(e->alias, "");
    EXPECT_EQ(liblog_count("[engine] user\n", "", ANDROID_LOG_ERROR), 1);
}

TEST_F(EngineConfig, FullRecordAndNumbersReadAsAtoi) {
    writeEngineFile(5, "<?xml version=\"1.0\"?><!-- engine --><user alias=\"work\" id=\"5\" userid=\"150\" "
                       "flags=\"6x\" version=\"junk\" isMigrating=\"true\"/>");
    EnginePtr e(get_engine(5));
    ASSERT_TRUE(e);
    EXPECT_STREQ(e->alias, "work");
    EXPECT_EQ(e->userid, 150);
    EXPECT_EQ(e->flags, 6);
    EXPECT_EQ(e->version, 0);
    EXPECT_EQ(e->isMigrating, 1);
    EXPECT_STREQ(e->spareText, "");
    EXPECT_EQ(e->spare, 0);
}

TEST_F(EngineConfig, OnlyLowerCaseTrueMarksMigration) {
    for (const char* value : {"TRUE", "1", "True", "true "}) {
        writeEngineFile(4, std::string("<user id=\"4\" isMigrating=\"") + value + "\"/>");
        EnginePtr e(get_engine(4));
        ASSERT_TRUE(e) << value;
        EXPECT_EQ(e->isMigrating, 0) << value;
    }
}

TEST_F(EngineConfig, AliasOf511IsKeptAnd512LeftEmpty) {
    writeUserEngine(8, std::string(511, 'a'));
    EnginePtr kept(get_engine(8));
    ASSERT_TRUE(kept);
    EXPECT_EQ(std::string(kept->alias), std::string(511, 'a'));

    writeUserEngine(8, std::string(512, 'b'));
    EnginePtr dropped(get_engine(8));
    ASSERT_TRUE(dropped);
    EXPECT_STREQ(dropped->alias, "");
    EXPECT_EQ(dropped->id, 8);
}

TEST_F(EngineConfig, NestedUserIsParsedButNotReturned) {
    writeEngineFile(9, "<users><user alias=\"deep\" id=\"9\"/></users>");
    EXPECT_EQ(get_engine(9), nullptr);
    // It was read all the same: the walk logged it.
    EXPECT_EQ(liblog_count("[engine] user\n"), 1);
}

TEST_F(EngineConfig, UserWithoutAttributesGivesNothing) {
    writeEngineFile(9, "<user><!-- nothing --></user>");
    EXPECT_EQ(get_engine(9), nullptr);
}

TEST_F(EngineConfig, MissingOrMalformedFileFailsWithItsPath) {
    EXPECT_EQ(get_engine(11), nullptr);
    EXPECT_EQ(liblog_count("Failed to parse /data/system/users/11/MirelUser11.xml\n", "", ANDROID_LOG_ERROR), 1);

    writeEngineFile(12, "<user id=\"12\"");
    EXPECT_EQ(get_engine(12), nullptr);
    EXPECT_EQ(liblog_count("Failed to parse /data/system/users/12/MirelUser12.xml\n"), 1);
}

TEST_F(EngineConfig, ListLoadsEnginesInDocumentOrderAtAnyDepth) {
    writeUserEngine(20, "first");
    writeUserEngine(21, "second");
    writeFile("/data/system/users/mirel_engine_list.xml",
              "<engines><a><engine alias=\"first\" id=\"20\"/></a><b><c><engine alias=\"second\" id=\"21\"/>"
              "</c></b></engines>");
    ListPtr list(get_engines());
    ASSERT_TRUE(list);
    ASSERT_EQ(list->count, 2);
    EXPECT_STREQ(list->engines[0]->alias, "first");
    EXPECT_STREQ(list->engines[1]->alias, "second");
    EXPECT_EQ(liblog_count("URL: /data/system/users/mirel_engine_list.xml\n", "", ANDROID_LOG_INFO, LOG_ID_SYSTEM), 1);
    EXPECT_EQ(liblog_count("[list] engine\n", "", ANDROID_LOG_INFO, LOG_ID_SYSTEM), 2);
    EXPECT_EQ(liblog_count("   [list] alias : second\n"), 1);
    EXPECT_EQ(liblog_count("   [list] engine_id : 21\n"), 1);

    free_engines(list.release());
    EXPECT_EQ(liblog_count("[freeing] engine : first[20, 0]\n", "", ANDROID_LOG_INFO, LOG_ID_SYSTEM), 1);
    EXPECT_EQ(liblog_count("[freeing] engine : second[21, 0]\n"), 1);
}

TEST_F(EngineConfig, ListKeepsOnlyEnginesWhoseFilesLoad) {
    const char* listXml = "<engines><engine alias=\"a\" id=\"30\"/><engine alias=\"b\" id=\"31\"/></engines>";
    writeFile("/data/system/users/mirel_engine_list.xml", listXml);
    EXPECT_EQ(get_engines(), nullptr);  // neither per-user file exists

    writeUserEngine(31, "b");
    ListPtr list(get_engines());
    ASSERT_TRUE(list);
    ASSERT_EQ(list->count, 1);
    EXPECT_EQ(list->engines[0]->id, 31);
}

TEST_F(EngineConfig, ElementAfterAnEngineListsItTwice) {
    writeUserEngine(40, "twice");
    writeFile("/data/system/users/mirel_engine_list.xml",
              "<engines>\n  <engine alias=\"twice\" id=\"40\"/>\n  <note/>\n</engines>");
    ListPtr list(get_engines());
    ASSERT_TRUE(list);
    ASSERT_EQ(list->count, 2);
    EXPECT_EQ(list->engines[0], list->engines[1]);
    // Freeing must not free the shared record twice (ASan watches), yet
    // each slot is reported.
    free_engines(list.release());
    EXPECT_EQ(liblog_count("[freeing] engine : twice[40, 0]\n"), 2);
}

TEST_F(EngineConfig, EngineWithoutIdIsSkippedAndEmptyListIsNull) {
    writeFile("/data/system/users/mirel_engine_list.xml", "<engines><engine alias=\"x\"/></engines>");
    EXPECT_EQ(get_engines(), nullptr);
    EXPECT_EQ(liblog_count("   [list] engine_id : (null)\n"), 1);

    writeFile("/data/system/users/mirel_engine_list.xml", "<engines/>");
    EXPECT_EQ(get_engines(), nullptr);
    writeFile("/data/system/users/mirel_engine_list.xml", "<engines>");
    EXPECT_EQ(get_engines(), nullptr);
    EXPECT_EQ(liblog_count("Failed to parse /data/system/users/mirel_engine_list.xml\n", "", ANDROID_LOG_INFO,
                           LOG_ID_SYSTEM),
              1);
}

TEST_F(EngineConfig, ListNeverGrowsPastItsCapacity) {
    writeUserEngine(50, "many");
    std::string xml = "<engines>";
    for (int i = 0; i < kEngineListCapacity + 5; ++i) xml += "<engine alias=\"many\" id=\"50\"/>";
    writeFile("/data/system/users/mirel_engine_list.xml", xml + "</engines>");
    ListPtr list(get_engines());
    ASSERT_TRUE(list);
    EXPECT_EQ(list->count, kEngineListCapacity);
}

TEST_F(EngineConfig, WalkWithoutListOnlyLoads) {
    writeUserEngine(60, "loose");
    writeFile("/tmp/list.xml", "<engines><engine alias=\"loose\" id=\"60\"/><x/></engines>");
    xmlDoc* doc = xmlReadFile("/tmp/list.xml", nullptr, 0);
    ASSERT_TRUE(doc);
    parse(xmlDocGetRootElement(doc), nullptr);  // the loaded engine must not leak
    xmlFreeDoc(doc);
    EXPECT_EQ(liblog_count("[engine] user\n"), 1);
}

TEST_F(EngineConfig, SecureFsAtRootIsRead) {
    writeFile("/data/system/users/secure_fs.xml", "<secure_fs quarnVersion=\"4\" version=\"2\"/>");
    FsPtr fs(get_secure_fs());
    ASSERT_TRUE(fs);
    EXPECT_EQ(fs->version, 2);
    EXPECT_STREQ(fs->quarnVersion, "4");
    EXPECT_EQ(fs->spare, 0);
    EXPECT_EQ(liblog_count("[list] secure_fs\n", "", ANDROID_LOG_INFO, LOG_ID_SYSTEM), 1);
    EXPECT_EQ(liblog_count("   [list] quarn_version : 4\n"), 1);
    EXPECT_EQ(liblog_count("   [list] version : 2\n"), 1);
}

TEST_F(EngineConfig, SecureFsNestedBareMissingOrLong) {
    const std::string file = "/data/system/users/secure_fs.xml";
    EXPECT_EQ(get_secure_fs(), nullptr);
    EXPECT_EQ(liblog_count("Failed to parse " + file + "\n"), 1);

    writeFile(file, "<device><secure_fs quarnVersion=\"4\" version=\"2\"/></device>");
    EXPECT_EQ(get_secure_fs(), nullptr);
    writeFile(file, "<secure_fs/>");
    EXPECT_EQ(get_secure_fs(), nullptr);

    writeFile(file, "<secure_fs quarnVersion=\"" + std::string(512, 'v') + "\"/>");
    FsPtr fs(get_secure_fs());
    ASSERT_TRUE(fs);
    EXPECT_STREQ(fs->quarnVersion, "");
    EXPECT_EQ(fs->version, 0);
}

TEST_F(EngineConfig, CompareStringNeedsBothAndExactBytes) {
    EXPECT_TRUE(compare_string("user", "user"));
    EXPECT_TRUE(compare_string("", ""));
    EXPECT_FALSE(compare_string("user", "users"));
    EXPECT_FALSE(compare_string("User", "user"));
    EXPECT_FALSE(compare_string(nullptr, "user"));
    EXPECT_FALSE(compare_string(nullptr, nullptr));
}

TEST_F(EngineConfig, DumpLogsSevenLabelledLines) {
    dump_engine("adding-chamber", nullptr);
    EXPECT_TRUE(liblog_records().empty());

    engine e{};
    snprintf(e.alias, sizeof(e.alias), "%s", "work");
    e.id = 7;
    e.userid = 150;
    e.flags = 2;
    e.version = 1;
    e.isMigrating = 1;
    dump_engine("adding-chamber", &e);
    std::vector<std::string> want = {"[adding-chamber] =========================\n",
                                     "[adding-chamber] alias : work\n",
                                     "[adding-chamber] id : 7\n",
                                     "[adding-chamber] userid : 150\n",
                                     "[adding-chamber] flags : 2\n",
                                     "[adding-chamber] version : 1\n",
                                     "[adding-chamber] isMigrating : 1\n"};
    auto records = liblog_records();
    ASSERT_EQ(records.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_EQ(records[i].text, want[i]);
        EXPECT_EQ(records[i].priority, ANDROID_LOG_ERROR);
        EXPECT_EQ(records[i].tag, "");
    }
}
