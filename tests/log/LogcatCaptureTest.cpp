#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>

#include <chrono>
#include <future>
#include <string>

#include "devprofile/DeviceProfile.h"
#include "log/PelkLog.h"
#include "support/Files.h"

namespace {

using testfs::exists;
using testfs::lines;
using testfs::readFile;
using testfs::writeFile;

const char kCapture[] = "/data/log/pelk.log";
const char kFotaCapture[] = "/data/log/pelk_fota.log";

// The capture split at the separator line: mount table, then log lines.
struct Capture {
    std::string mountTable;
    std::vector<std::string> log;
};

Capture readCapture(const std::string& path) {
    const std::string text = readFile(path);
    const std::string separator(48, '-');
    size_t at = text.find(separator + "\n");
    if (at == std::string::npos) return {text, {}};
    return {text.substr(0, at), lines(text.substr(at + separator.size() + 1))};
}

class LogcatCapture : public testing::Test {
protected:
    void SetUp() override {
        liblog_clear();
        devprofile::set("time.scale", "0.001");  // 600 tests 500 ms apart take 0.3 s
        devprofile::set("prop.ro.build.PDA", "NEW");
        devprofile::set("user.150", "zanth");
    }
    // Puts lines into the device log before logcat starts, so that the
    // capture reaches its line limit.
    static void fillDeviceLog(int count) {
        for (int i = 0; i < count; ++i) __android_log_print(ANDROID_LOG_DEBUG, "filler", "line %d", i);
    }
    // Runs the capture thread's body until it ends by itself.
    static void runCapture() {
        auto capture = std::async(std::launch::async, PelkLog::getlogcat, nullptr);
        ASSERT_EQ(capture.wait_for(std::chrono::seconds(120)), std::future_status::ready);
    }
    static int logged(const char* text) { return liblog_count(text, "pelklogd", ANDROID_LOG_DEBUG, LOG_ID_MAIN); }
};

TEST_F(LogcatCapture, NoContainerUserNoCapture) {
    devprofile::erase("user.150");
    PelkLog* log = PelkLog::Instance();
    ASSERT_EQ(log->startLogcat(), 0);
    ASSERT_EQ(pthread_join(log->logcatThread(), nullptr), 0);
    EXPECT_EQ(logged("No persona infos at xml, out\n"), 1);
    EXPECT_FALSE(exists(kCapture) || exists(kFotaCapture));
}

TEST_F(LogcatCapture, NormalBootCapturesTheMountTableAndAtMost35000LogLines) {
    writeFile("/data/log/pelk_ongoing", "NEW\n");
    writeFile("/data/log/pelk_success", "NEW\n");
    fillDeviceLog(35100);
    runCapture();

    Capture c = readCapture(kCapture);
    EXPECT_NE(c.mountTable.find(" on /dev type tmpfs"), std::string::npos);
    ASSERT_EQ(c.log.size(), 35000u);
    EXPECT_NE(c.log.back().find(": line 34999"), std::string::npos);
    EXPECT_FALSE(exists(kFotaCapture));
    for (const char* line :
         {".... it's Normal booting\n", "PELK Premount is starting!!", "getlogcat END", "PELK Premount is success!!"})
        EXPECT_EQ(logged(line), 1) << line;
}

TEST_F(LogcatCapture, UpgradeBootCapturesAtMost40000LinesEvenWithoutPremount) {
    writeFile("/data/log/pelk_success", "OLD\n");
    fillDeviceLog(40100);
    runCapture();  // the ongoing marker never appears: the capture starts after the wait

    EXPECT_EQ(readCapture(kFotaCapture).log.size(), 40000u);
    EXPECT_FALSE(exists(kCapture));
    EXPECT_EQ(logged(".... it's Normal booting\n"), 0);
    EXPECT_EQ(logged("PELK Premount is starting!!"), 0);
}

TEST_F(LogcatCapture, PremountOutcomeDecidesTheCapturesName) {
    writeFile("/data/log/pelk_ongoing", "NEW\n");
    fillDeviceLog(35000);
    runCapture();  // no outcome: the capture stays as it is
    EXPECT_EQ(readCapture(kCapture).log.size(), 35000u);
    EXPECT_EQ(logged("PELK Premount is failed!!"), 0);

    writeFile("/data/log/pelk_error", "NEW\n");
    runCapture();
    EXPECT_FALSE(exists(kCapture));
    EXPECT_EQ(readCapture(std::string(kCapture) + ".error").log.size(), 35000u);
    EXPECT_EQ(logged("PELK Premount is failed!!"), 1);
    EXPECT_EQ(logged("File backup for error log.."), 1);
}

TEST_F(LogcatCapture, UnwritableCaptureFileEndsTheThread) {
    ASSERT_EQ(mkdir(kCapture, 0700), 0);
    runCapture();
    EXPECT_EQ(liblog_count("Could not open file for log, out\n", "pelklogd", ANDROID_LOG_ERROR, LOG_ID_SYSTEM), 1);
    EXPECT_EQ(logged("getlogcat END"), 0);
}

}  // namespace
