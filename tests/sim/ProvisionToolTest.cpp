// The provisioning tool writes what the readers then find.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Sandbox.h"
#include "config/EngineConfig.h"
#include "keystore/QuarnHelper.h"
#include "support/KeyStoreFiles.h"

namespace {

int runTool(std::vector<std::string> args) {
    std::string tool = sim::toolPath("pelkprov");
    pid_t pid = fork();
    if (pid == 0) {
        std::vector<char*> argv = {&tool[0]};
        for (auto& a : args) argv.push_back(&a[0]);
        argv.push_back(nullptr);
        execv(tool.c_str(), argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(ProvisionTool, KeyIsReadBackForEachStoreVersion) {
    keytest::Bytes key = keytest::randomBytes(32);
    for (int version : {3, 4}) {
        int user = 170 + version;
        ASSERT_EQ(runTool({"key", std::to_string(user), "1", std::to_string(version), keytest::hex(key)}), 0);
        QuarnHelper helper(user, kQuarnKeyCe);
        EXPECT_EQ(helper.quarnVersion, version);
        std::vector<unsigned char> out(kQuarnKeyBufferSize);
        int len = 0;
        EXPECT_EQ(helper.getKeyFromQuarnKeyStore(out.data(), &len), version);
        EXPECT_TRUE(std::equal(key.begin(), key.end(), out.begin()));
        struct stat st;
        ASSERT_EQ(stat(keytest::keyFilePath(version, helper.keyName).c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, 0600u);
        EXPECT_EQ(st.st_uid, 1000u);
    }
}

TEST(ProvisionTool, RefusesBadArguments) {
    EXPECT_NE(runTool({"key", "150", "1", "5", "00"}), 0);
    EXPECT_NE(runTool({"key", "150", "1", "4", "zz"}), 0);
    EXPECT_NE(runTool({"key", "0", "10", "4", "random"}), 0);  // no secure-fs file yet
    EXPECT_NE(runTool({"bogus"}), 0);
    EXPECT_FALSE(QuarnHelper(150, kQuarnKeyCe).isKeyExist());
}

TEST(ProvisionTool, XmlFilesAreWhatTheReadersExpect) {
    ASSERT_EQ(runTool({"engine", "7", "alias=a&b \"quoted\"", "userid=150", "flags=2", "isMigrating=true"}), 0);
    ASSERT_EQ(runTool({"engine", "8", "alias=second"}), 0);
    ASSERT_EQ(runTool({"engine-list", "7:a&b", "8"}), 0);
    engine_list* list = get_engines();
    ASSERT_TRUE(list);
    ASSERT_EQ(list->count, 2);
    EXPECT_STREQ(list->engines[0]->alias, "a&b \"quoted\"");
    EXPECT_EQ(list->engines[0]->id, 7);
    EXPECT_EQ(list->engines[0]->userid, 150);
    EXPECT_EQ(list->engines[0]->isMigrating, 1);
    EXPECT_EQ(list->engines[1]->id, 8);
    free_engines(list);

    ASSERT_EQ(runTool({"secure-fs", "4", "2"}), 0);
    secure_fs* fs = get_secure_fs();
    ASSERT_TRUE(fs);
    EXPECT_STREQ(fs->quarnVersion, "4");
    EXPECT_EQ(fs->version, 2);
    free_secure_fs(fs);

    ASSERT_EQ(runTool({"key", "0", "10", "4", "random"}), 0);
    EXPECT_TRUE(QuarnHelper(0, kQuarnKeySecureFs).isKeyExist());
}
