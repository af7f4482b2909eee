#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <future>
#include <string>

#include "base/UniqueFd.h"
#include "base/UniqueHandle.h"
#include "log/PelkLog.h"
#include "support/Files.h"

namespace {

using testfs::exists;
using testfs::readFile;
using testfs::writeFile;

const char kTxt[] = "/data/log/mirel_log.txt";
const char kOld[] = "/data/log/mirel_log.old";

class DevLogReader : public testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC0", 1);
        tzset();
        liblog_clear();
    }
    // Runs the reader thread's body, writes text into the device as the
    // kernel would, closes it, and waits for the reader to end by itself.
    static void runReader(const std::string& text) {
        auto reader = std::async(std::launch::async, PelkLog::runThread, nullptr);
        pelk::UniqueFd kernel;
        for (int i = 0; i < 10000 && !kernel.ok(); ++i) {  // until the reader has it open
            kernel.reset(open("/dev/dek_log", O_WRONLY | O_NONBLOCK | O_CLOEXEC));
            if (!kernel.ok() && errno != ENXIO) break;
            usleep(1000);
        }
        if (kernel.ok()) {
            EXPECT_EQ(write(kernel.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
        }
        kernel.reset();
        ASSERT_EQ(reader.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    }
    static int errors(const char* text) { return liblog_count(text, "pelklogd", ANDROID_LOG_ERROR, LOG_ID_SYSTEM); }
    static int infos(const char* text) { return liblog_count(text, "pelklogd", ANDROID_LOG_INFO, LOG_ID_SYSTEM); }
};

TEST_F(DevLogReader, CopiesRewrittenLinesUntilTheDeviceEnds) {
    writeFile(kTxt, "earlier\n");
    const char device[] = "1447600000.123|first\n\0skipped\n1447600001.456789|second\n";
    runReader(std::string(device, sizeof(device) - 1));
    EXPECT_EQ(readFile(kTxt), "earlier\n11-15 15:06:40.123|first\n11-15 15:06:41.456|second\n");
    EXPECT_EQ(infos("PlekLog runThread started"), 1);
    EXPECT_EQ(errors("No data read"), 1);
    EXPECT_EQ(errors("Read failure, exiting"), 1);
    EXPECT_EQ(infos("PlekLog runThread returning"), 1);
}

TEST_F(DevLogReader, RotatesOnlyPastTenThousandBytes) {
    // 9979 + 21 bytes: exactly 10000, kept.
    writeFile(kTxt, std::string(9979, 's'));
    writeFile(kOld, "older\n");
    runReader("1447600000.100|x\n");
    EXPECT_EQ(readFile(kTxt).size(), 10000u);
    EXPECT_EQ(readFile(kOld), "older\n");

    // One byte more replaces the old log; the next line starts a new one.
    runReader("1447600000.100|xy\n1447600000.200|fresh\n");
    EXPECT_EQ(readFile(kOld), std::string(9979, 's') + "11-15 15:06:40.100|x\n11-15 15:06:40.100|xy\n");
    EXPECT_EQ(readFile(kTxt), "11-15 15:06:40.200|fresh\n");
}

TEST_F(DevLogReader, RotationWithoutAnOldLogEndsTheReader) {
    writeFile(kTxt, std::string(9990, 's'));
    runReader("1447600000.100|over the limit\n1447600000.200|never read\n");
    EXPECT_EQ(errors("Remove error"), 1);
    EXPECT_EQ(errors("Read failure, exiting"), 0);
    EXPECT_EQ(readFile(kTxt), std::string(9990, 's') + "11-15 15:06:40.100|over the limit\n");
    EXPECT_FALSE(exists(kOld));
}

TEST_F(DevLogReader, CreatesAMissingLogFolder) {
    ASSERT_EQ(rmdir("/data/log"), 0);
    runReader("1447600000.100|x\n");
    EXPECT_EQ(infos("'/data/log/' does not exist, attempt to create"), 1);
    struct stat st {};
    ASSERT_EQ(stat("/data/log", &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700u);
    EXPECT_EQ(readFile(kTxt), "11-15 15:06:40.100|x\n");
    EXPECT_EQ(PelkLog::checkLogPath("/data/missing/log/"), -1);
    EXPECT_EQ(errors("Failed to create '/data/missing/log/'"), 1);
}

TEST_F(DevLogReader, StartLogEndsAtOnceWithoutTheDevice) {
    ASSERT_EQ(unlink("/dev/dek_log"), 0);
    PelkLog* log = PelkLog::Instance();
    ASSERT_EQ(log, PelkLog::Instance());
    ASSERT_EQ(log->startLog(), 0);
    ASSERT_EQ(pthread_join(log->logThread(), nullptr), 0);
    EXPECT_EQ(errors("'/dev/dek_log' does not exist"), 1);
    EXPECT_EQ(errors("Device open failure, exiting"), 1);
    EXPECT_EQ(infos("PlekLog runThread returning"), 1);
    EXPECT_FALSE(exists(kTxt));
}

TEST_F(DevLogReader, ReadsAtMost254CharactersAtATime) {
    writeFile("/data/local/tmp/dev", std::string(300, 'a') + "\n");
    pelk::UniqueFile dev(PelkLog::openLogDev("/data/local/tmp/dev"));
    ASSERT_TRUE(dev);
    char line[PelkLog::DEV_LINE_BUFFER];
    EXPECT_EQ(PelkLog::readFromDev(dev.get(), line), 254);
    EXPECT_EQ(PelkLog::readFromDev(dev.get(), line), 47);
    EXPECT_EQ(PelkLog::readFromDev(dev.get(), line), -1);
}

}  // namespace
