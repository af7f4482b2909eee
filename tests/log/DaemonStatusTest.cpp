#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>

#include <regex>
#include <string>
#include <thread>

#include "devprofile/DeviceProfile.h"
#include "log/PelkLog.h"
#include "support/Files.h"

namespace {

using testfs::exists;
using testfs::lines;
using testfs::readFile;
using testfs::writeFile;

const char kOngoing[] = "/data/log/pelk_ongoing";
const char kSuccess[] = "/data/log/pelk_success";
const char kError[] = "/data/log/pelk_error";
const char kRunning[] = "/data/log/pelk_running";

// "YYYY-MM-DD HH:MM:SS LEVEL message", single blanks.
bool stamped(const std::string& line, const std::string& level, const std::string& message) {
    return std::regex_match(line, std::regex("\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2} " + level + " " + message));
}

void expectResultOwner(const char* path) {
    struct stat st {};
    ASSERT_EQ(stat(path, &st), 0) << path;
    EXPECT_EQ(st.st_uid, 1000u) << path;
    EXPECT_EQ(st.st_gid, 1007u) << path;
    EXPECT_EQ(st.st_mode & 07777, 0640u) << path;
}

class DaemonStatus : public testing::Test {
protected:
    void SetUp() override {
        liblog_clear();
        devprofile::set("prop.ro.build.PDA", "NEW");
    }
    static int renamings() { return liblog_count("Log file renaming..", "pelklogd", ANDROID_LOG_DEBUG, LOG_ID_MAIN); }
};

TEST_F(DaemonStatus, PremountEndMovesTheStampedMarkerToItsResult) {
    struct Case {
        int status;
        const char* result;
    };
    for (Case c : {Case{1, kSuccess}, Case{2, kError}, Case{7, kError}}) {
        unlink(kError);
        writeFile(kOngoing, "left over from an unfinished boot\n");
        PelkLog log;
        log.setDaemonStatus(0);
        log.stampPelkLog(0, "user %d mounted", 150);
        log.stampPelkLog(1, "user %d: %s", 151, "no key");
        log.setDaemonStatus(c.status);
        EXPECT_FALSE(log.hasStatusStream());
        EXPECT_FALSE(exists(kOngoing)) << c.status;
        auto text = lines(readFile(c.result));
        ASSERT_EQ(text.size(), 3u) << c.status;
        EXPECT_EQ(text[0], "NEW");
        EXPECT_TRUE(stamped(text[1], "NORMAL", "user 150 mounted")) << text[1];
        EXPECT_TRUE(stamped(text[2], "ERROR", "user 151: no key")) << text[2];
        expectResultOwner(c.result);
    }
    EXPECT_EQ(renamings(), 3);
}

TEST_F(DaemonStatus, WithoutAnOpenStreamNothingIsWrittenOrRenamed) {
    writeFile(kOngoing, "someone else's\n");
    PelkLog log;
    log.stampPelkLog(0, "dropped");
    log.setDaemonStatus(1);
    log.setDaemonStatus(2);
    EXPECT_EQ(readFile(kOngoing), "someone else's\n");
    EXPECT_FALSE(exists(kSuccess) || exists(kError));
    EXPECT_EQ(renamings(), 0);

    // No build property: no build line. A closed stream drops what follows.
    devprofile::set("prop.ro.build.PDA", "");
    log.setDaemonStatus(0);
    log.setDaemonStatus(4);
    log.stampPelkLog(0, "dropped");
    log.setDaemonStatus(1);
    EXPECT_EQ(readFile(kOngoing), "");
    EXPECT_FALSE(exists(kSuccess));

    // The marker cannot be created: no stream.
    unlink(kOngoing);
    ASSERT_EQ(rmdir("/data/log"), 0);
    log.setDaemonStatus(0);
    EXPECT_FALSE(log.hasStatusStream());
}

TEST_F(DaemonStatus, RunningLogAppendsStampedLinesBesideAPremountStream) {
    PelkLog premount;
    premount.setDaemonStatus(0);
    premount.stampPelkLog(0, "before");
    PelkLog::writeRunningLog(0, "first %d", 1);
    PelkLog::writeRunningLog(1, "%s", std::string(5000, 'x').c_str());
    premount.stampPelkLog(0, "after");
    premount.setDaemonStatus(1);

    auto running = lines(readFile(kRunning));
    ASSERT_EQ(running.size(), 2u);
    EXPECT_TRUE(stamped(running[0], "NORMAL", "first 1")) << running[0];
    // An overlong message is cut to the 4096-byte line buffer.
    EXPECT_EQ(running[1].size(), 4095u);
    EXPECT_TRUE(stamped(running[1], "ERROR", "x+")) << running[1].substr(0, 40);
    expectResultOwner(kRunning);
    auto marker = lines(readFile(kSuccess));
    ASSERT_EQ(marker.size(), 3u);
    EXPECT_TRUE(stamped(marker[2], "NORMAL", "after"));
    EXPECT_EQ(liblog_count("PelkLog::~PelkLog", "pelklogd", ANDROID_LOG_INFO, LOG_ID_SYSTEM), 2);
}

// Pre-mount stamps its marker while the reaper thread writes the running
// log: both take their time from the one shared stamp, and every line of
// either file still comes out whole and stamped.
TEST_F(DaemonStatus, PremountAndRunningLogStampFromTwoThreadsAtOnce) {
    const int kLines = 100;
    PelkLog premount;
    premount.setDaemonStatus(0);
    std::thread reaper([] {
        for (int i = 0; i < kLines; ++i) PelkLog::writeRunningLog(1, "reaped %d", i);
    });
    for (int i = 0; i < kLines; ++i) premount.stampPelkLog(0, "mounted %d", i);
    reaper.join();
    premount.setDaemonStatus(1);

    auto marker = lines(readFile(kSuccess));
    ASSERT_EQ(marker.size(), 1u + kLines);
    for (int i = 0; i < kLines; ++i) {
        EXPECT_TRUE(stamped(marker[1 + i], "NORMAL", "mounted " + std::to_string(i))) << marker[1 + i];
    }
    auto running = lines(readFile(kRunning));
    ASSERT_EQ(running.size(), static_cast<size_t>(kLines));
    for (int i = 0; i < kLines; ++i) {
        EXPECT_TRUE(stamped(running[i], "ERROR", "reaped " + std::to_string(i))) << running[i];
    }
}

TEST_F(DaemonStatus, RunningLogIsStartedAfreshFrom10001Bytes) {
    const std::string full = std::string(9999, 'k') + "\n";
    writeFile(kRunning, full);
    PelkLog::writeRunningLog(0, "kept");
    std::string text = readFile(kRunning);
    EXPECT_EQ(text.substr(0, 10000), full);
    EXPECT_TRUE(stamped(lines(text).back(), "NORMAL", "kept"));

    writeFile(kRunning, full + "k");
    PelkLog::writeRunningLog(0, "afresh");
    auto fresh = lines(readFile(kRunning));
    ASSERT_EQ(fresh.size(), 1u);
    EXPECT_TRUE(stamped(fresh[0], "NORMAL", "afresh")) << fresh[0];
}

}  // namespace
