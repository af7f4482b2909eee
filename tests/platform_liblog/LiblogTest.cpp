#include <fcntl.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_filter.h>
#include <log/log_records.h>
#include <log/record_file.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>
#include "support/Files.h"

namespace {

using testfs::lines;
using testfs::readFile;
using testfs::writeFile;

// The lines logcat prints for every record so far.
std::vector<std::string> deviceLogLines() {
    std::string text;
    for (const LogRecord& r : liblog_records()) text += liblog_threadtime(r);
    return lines(text);
}

// Runs body in a child and answers its exit status.
int inChild(const std::function<void()>& body) {
    pid_t child = fork();
    if (child == 0) {
        body();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// What a child logging with this ANDROID_LOG_TAGS (null: unset) echoes on stderr.
std::string echoed(const char* tags, const std::function<void()>& logs) {
    int pipeFds[2];
    if (pipe(pipeFds) != 0) return "<no pipe>";
    pid_t child = fork();
    if (child == 0) {
        dup2(pipeFds[1], STDERR_FILENO);
        close(pipeFds[0]);
        close(pipeFds[1]);
        if (tags)
            setenv("ANDROID_LOG_TAGS", tags, 1);
        else
            unsetenv("ANDROID_LOG_TAGS");
        logs();
        _exit(0);
    }
    close(pipeFds[1]);
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = read(pipeFds[0], buf, sizeof(buf))) > 0) out.append(buf, static_cast<size_t>(n));
    close(pipeFds[0]);
    waitpid(child, nullptr, 0);
    return out;
}

void logMix() {
    __android_log_buf_print(LOG_ID_SYSTEM, ANDROID_LOG_VERBOSE, "pelkd", "pelkd verbose");
    __android_log_buf_print(LOG_ID_SYSTEM, ANDROID_LOG_DEBUG, "pelkd", "pelkd debug");
    __android_log_print(ANDROID_LOG_INFO, "other", "other info");
    __android_log_print(ANDROID_LOG_ERROR, "other", "other error");
}

// The bulky tests below would flood the output with their own echo; the
// echo itself is tested in children that set their own ANDROID_LOG_TAGS.
class QuietEcho : public testing::Environment {
    void SetUp() override { setenv("ANDROID_LOG_TAGS", "*:s", 1); }
};
const testing::Environment* const kQuiet = testing::AddGlobalTestEnvironment(new QuietEcho);

}  // namespace

TEST(Liblog, RecordsOfAnotherProcessAreSeenWithNewlinesIntact) {
    pid_t childPid = 0;
    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    ASSERT_EQ(inChild([&] {
                  pid_t self = getpid();
                  __android_log_buf_print(LOG_ID_SYSTEM, ANDROID_LOG_DEBUG, "pelkd", "\n\nCMD > %s \n", "mount 150");
                  __android_log_print(ANDROID_LOG_ERROR, "tab\ttag", "back\\slash\tand\rcr");
                  if (write(pipeFds[1], &self, sizeof(self)) != sizeof(self)) _exit(1);
              }),
              0);
    ASSERT_EQ(read(pipeFds[0], &childPid, sizeof(childPid)), static_cast<ssize_t>(sizeof(childPid)));
    close(pipeFds[0]);
    close(pipeFds[1]);

    auto records = liblog_records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].buffer, LOG_ID_SYSTEM);
    EXPECT_EQ(records[0].priority, ANDROID_LOG_DEBUG);
    EXPECT_EQ(records[0].pid, childPid);
    EXPECT_EQ(records[0].tid, childPid);
    EXPECT_EQ(records[0].tag, "pelkd");
    EXPECT_EQ(records[0].text, "\n\nCMD > mount 150 \n");
    EXPECT_EQ(records[1].buffer, LOG_ID_MAIN);
    EXPECT_EQ(records[1].tag, "tab\ttag");
    EXPECT_EQ(records[1].text, "back\\slash\tand\rcr");
    EXPECT_EQ(liblog_count("\n\nCMD > mount 150 \n", "pelkd", ANDROID_LOG_DEBUG, LOG_ID_SYSTEM), 1);
    EXPECT_EQ(liblog_count("\n\nCMD > mount 150 \n", "pelkd", ANDROID_LOG_DEBUG, LOG_ID_MAIN), 0);
    EXPECT_TRUE(liblog_any_contains("CMD > mount"));

    liblog_clear();
    EXPECT_TRUE(liblog_records().empty());
    __android_log_print(ANDROID_LOG_INFO, "pelkd", "after clear");
    EXPECT_EQ(liblog_count("after clear"), 1);
}

TEST(Liblog, ConcurrentProcessesNeverInterleaveRecords) {
    const int kChildren = 4, kEach = 200;
    const std::string body(1500, 'b');
    std::vector<pid_t> children;
    for (int i = 0; i < kChildren; ++i) {
        pid_t child = fork();
        if (child == 0) {
            for (int j = 0; j < kEach; ++j) __android_log_print(ANDROID_LOG_INFO, "w", "%d %s\nend", i, body.c_str());
            _exit(0);
        }
        children.push_back(child);
    }
    for (pid_t c : children) waitpid(c, nullptr, 0);
    auto records = liblog_records();
    ASSERT_EQ(records.size(), static_cast<size_t>(kChildren * kEach));
    for (const auto& r : records) ASSERT_EQ(r.text.substr(r.text.find(' ') + 1), body + "\nend");
    // Each record is two whole lines of the device log.
    auto logLines = deviceLogLines();
    ASSERT_EQ(logLines.size(), static_cast<size_t>(2 * kChildren * kEach));
    for (size_t i = 0; i < logLines.size(); i += 2) {
        ASSERT_EQ(logLines[i].substr(logLines[i].size() - body.size()), body);
        ASSERT_EQ(logLines[i + 1].substr(logLines[i + 1].size() - 5), ": end");
    }
}

TEST(Liblog, ChildrenForkedWhileAnotherThreadLogsCanLog) {
    std::atomic<bool> stop{false};
    std::thread chatter([&] {
        while (!stop) __android_log_print(ANDROID_LOG_INFO, "chatter", "busy");
    });
    const int kForks = 100;
    int clean = 0;
    for (int i = 0; i < kForks; ++i) {
        pid_t child = fork();
        if (child == 0) {
            alarm(2);  // a lock inherited held would hang here: fail instead
            __android_log_print(ANDROID_LOG_INFO, "child", "from child");
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) ++clean;
    }
    stop = true;
    chatter.join();
    EXPECT_EQ(clean, kForks);
    EXPECT_EQ(liblog_count("from child", "child"), kForks);
}

// The log keeps the pid and tid it stamps instead of asking the kernel per
// record: each thread, each fork (from any thread) and a fork of a fork must
// still be stamped with its own numbers.
TEST(Liblog, RecordsCarryTheLoggingThreadAcrossThreadsAndForks) {
    __android_log_print(ANDROID_LOG_INFO, "ids", "main");
    pid_t threadTid = 0;
    pid_t forkedFromThread = 0;
    std::thread worker([&] {
        threadTid = static_cast<pid_t>(syscall(SYS_gettid));
        __android_log_print(ANDROID_LOG_INFO, "ids", "thread");
        forkedFromThread = fork();
        if (forkedFromThread == 0) {
            __android_log_print(ANDROID_LOG_INFO, "ids", "child of thread");
            _exit(0);
        }
        waitpid(forkedFromThread, nullptr, 0);
    });
    worker.join();
    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    pid_t child = fork();
    if (child == 0) {
        __android_log_print(ANDROID_LOG_INFO, "ids", "child");
        pid_t grandchild = fork();
        if (grandchild == 0) {
            __android_log_print(ANDROID_LOG_INFO, "ids", "grandchild");
            _exit(0);
        }
        waitpid(grandchild, nullptr, 0);
        _exit(write(pipeFds[1], &grandchild, sizeof(grandchild)) == sizeof(grandchild) ? 0 : 1);
    }
    waitpid(child, nullptr, 0);
    pid_t grandchild = 0;
    ASSERT_EQ(read(pipeFds[0], &grandchild, sizeof(grandchild)), static_cast<ssize_t>(sizeof(grandchild)));
    close(pipeFds[0]);
    close(pipeFds[1]);

    std::map<std::string, std::pair<pid_t, pid_t>> ids;
    for (const auto& r : liblog_records()) ids[r.text] = {r.pid, r.tid};
    const pid_t me = getpid();
    EXPECT_EQ(ids["main"], std::make_pair(me, me));
    EXPECT_EQ(ids["thread"], std::make_pair(me, threadTid));
    EXPECT_NE(threadTid, me);
    EXPECT_EQ(ids["child of thread"], std::make_pair(forkedFromThread, forkedFromThread));
    EXPECT_EQ(ids["child"], std::make_pair(child, child));
    EXPECT_EQ(ids["grandchild"], std::make_pair(grandchild, grandchild));
}

// The stamp is the record's own local time, to the millisecond.
TEST(Liblog, DeviceLogStampsAreTheRecordsLocalTime) {
    __android_log_print(ANDROID_LOG_INFO, "clock", "before");
    __android_log_print(ANDROID_LOG_INFO, "clock", "after");

    auto records = liblog_records();
    auto logLines = deviceLogLines();
    ASSERT_EQ(records.size(), 2u);
    ASSERT_EQ(logLines.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        struct tm local {};
        localtime_r(&records[i].when.tv_sec, &local);
        char stamp[64];
        snprintf(stamp, sizeof(stamp), "%02d-%02d %02d:%02d:%02d.%03ld ", local.tm_mon + 1, local.tm_mday,
                 local.tm_hour, local.tm_min, local.tm_sec, records[i].when.tv_nsec / 1000000);
        EXPECT_EQ(logLines[i].substr(0, strlen(stamp)), stamp) << logLines[i];
    }
}

TEST(Liblog, DeviceLogHasOneThreadtimeLinePerMessageLine) {
    __android_log_buf_print(LOG_ID_SYSTEM, ANDROID_LOG_WARN, "pelkd", "first\n\nthird\n\n");
    __android_log_print(ANDROID_LOG_FATAL, "pelkd.QuarnHelper", "long tag");
    __android_log_print(ANDROID_LOG_VERBOSE, nullptr, "%s", "");

    auto logLines = deviceLogLines();
    ASSERT_EQ(logLines.size(), 5u);
    std::string me = std::to_string(getpid());
    std::string head = R"(^\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +)" + me + " +" + me + " ";
    EXPECT_TRUE(std::regex_search(logLines[0], std::regex(head + "W pelkd   : first$"))) << logLines[0];
    EXPECT_TRUE(std::regex_search(logLines[1], std::regex(head + "W pelkd   : $"))) << logLines[1];
    EXPECT_TRUE(std::regex_search(logLines[2], std::regex(head + "W pelkd   : third$"))) << logLines[2];
    EXPECT_TRUE(std::regex_search(logLines[3], std::regex(head + "F pelkd.QuarnHelper: long tag$"))) << logLines[3];
    EXPECT_TRUE(std::regex_search(logLines[4], std::regex(head + "V         : $"))) << logLines[4];
    // PID and TID are right-aligned in five columns, as logcat prints them.
    char expected[32];
    snprintf(expected, sizeof(expected), " %5d %5d W ", getpid(), getpid());
    EXPECT_NE(logLines[0].find(expected), std::string::npos) << logLines[0];
}

// A log call is one write: the writer looks whether its file is still there
// only every 50 ms, and at once after a wipe of its own process.
TEST(Liblog, RecordFilesRemovedUnderAWriterAreCreatedAgain) {
    auto wipeAndLog = [](const char* text, bool ourOwnWipe) {
        ASSERT_EQ(unlink("/sim/log/records"), 0);
        ASSERT_EQ(rmdir("/sim/log"), 0);
        if (ourOwnWipe) {
            hostlog::RecordFile::deviceWiped();
        } else {
            poll(nullptr, 0, 60);
        }
        __android_log_print(ANDROID_LOG_INFO, "pelkd", "%s", text);
        auto records = liblog_records();
        ASSERT_EQ(records.size(), 1u);
        EXPECT_EQ(records[0].text, text);
        auto logLines = deviceLogLines();
        ASSERT_EQ(logLines.size(), 1u);
        EXPECT_NE(logLines[0].find(std::string(": ") + text), std::string::npos);
    };
    __android_log_print(ANDROID_LOG_INFO, "pelkd", "before wipe");
    wipeAndLog("after a wipe by another process", false);
    wipeAndLog("after our own wipe", true);
}

TEST(Liblog, LongMessagesAreCutAt4068Bytes) {
    std::string huge(5000, 'x');
    __android_log_print(ANDROID_LOG_INFO, "pelkd", "%s", huge.c_str());
    __android_log_write(ANDROID_LOG_INFO, "pelkd", huge.c_str());
    std::string exact(4068, 'y');
    __android_log_print(ANDROID_LOG_INFO, "pelkd", "%s", exact.c_str());
    auto records = liblog_records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].text, huge.substr(0, 4068));
    EXPECT_EQ(records[1].text, huge.substr(0, 4068));
    EXPECT_EQ(records[2].text, exact);
}

TEST(Liblog, StderrEchoFollowsAndroidLogTags) {
    auto withoutPids = [](const std::string& text) {
        return std::regex_replace(text, std::regex(R"(\( *\d+\): )"), "(pid): ");
    };
    // Unset: INFO and above, as a host build of the platform echoes.
    EXPECT_EQ(withoutPids(echoed(nullptr, logMix)), "I/other(pid): other info\nE/other(pid): other error\n");
    EXPECT_EQ(echoed("*:s", logMix), "");
    EXPECT_EQ(withoutPids(echoed("pelkd:d *:e", logMix)), "D/pelkd(pid): pelkd debug\nE/other(pid): other error\n");
    EXPECT_EQ(withoutPids(echoed("pelkd *:S", logMix)), "V/pelkd(pid): pelkd verbose\nD/pelkd(pid): pelkd debug\n");
    EXPECT_EQ(withoutPids(echoed("*:v", [] { __android_log_print(ANDROID_LOG_WARN, "t", "one\ntwo\n"); })),
              "W/t(pid): one\nW/t(pid): two\n");
    // A change of ANDROID_LOG_TAGS within the process counts from the next line.
    EXPECT_EQ(withoutPids(echoed("*:s",
                                 [] {
                                     __android_log_print(ANDROID_LOG_ERROR, "t", "silenced");
                                     setenv("ANDROID_LOG_TAGS", "t:e", 1);
                                     __android_log_print(ANDROID_LOG_ERROR, "t", "shown");
                                     unsetenv("ANDROID_LOG_TAGS");
                                     __android_log_print(ANDROID_LOG_INFO, "t", "default again");
                                 })),
              "E/t(pid): shown\nI/t(pid): default again\n");
}

TEST(Liblog, TagFilterRejectsMalformedEntriesAndKeepsEarlierOnes) {
    hostlog::TagFilter filter(ANDROID_LOG_INFO);
    EXPECT_FALSE(filter.parse("pelkd:d other:x late:e"));
    EXPECT_TRUE(filter.allows("pelkd", ANDROID_LOG_DEBUG));
    EXPECT_TRUE(filter.allows("late", ANDROID_LOG_WARN));  // never reached: still the default INFO
    EXPECT_FALSE(filter.allows("late", ANDROID_LOG_DEBUG));
    EXPECT_FALSE(filter.parse("pelkd:dd"));
    EXPECT_FALSE(filter.parse(":d"));
    hostlog::TagFilter later(ANDROID_LOG_VERBOSE);
    EXPECT_TRUE(later.parse("a:w a:e"));  // the last word for a tag wins
    EXPECT_FALSE(later.allows("a", ANDROID_LOG_WARN));
    EXPECT_TRUE(later.allows("a", ANDROID_LOG_ERROR));
}
