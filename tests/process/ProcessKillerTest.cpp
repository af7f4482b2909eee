// The process killer against real processes of the simulated device. The
// device's /proc shows only its own processes, so nothing here can reach a
// process of the host; the fixture refuses to run outside it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "Sandbox.h"
#include "devprofile/DeviceProfile.h"
#include "process/ProcessKiller.h"
#include "support/Holders.h"

using holders::Holder;

namespace {

const char kRoot[] = "/data/killer";
// The pid namespace every Linux system starts in; a walk must never run there.
constexpr ino_t kHostPidNamespace = 0xEFFFFFFC;

std::string under(const std::string& rel) { return std::string(kRoot) + "/" + rel; }

ino_t pidNamespace() {
    struct stat st;
    return stat("/proc/self/ns/pid", &st) == 0 ? st.st_ino : 0;
}

// The killer's lines about holders (not the walk's header or waits).
std::vector<std::string> holderLines() {
    std::vector<std::string> out;
    for (const LogRecord& r : liblog_records())
        if (r.tag == "ProcessKiller" && r.text.find(") has ") != std::string::npos) out.push_back(r.text);
    return out;
}

std::string line(const char* prefix, const std::string& name, pid_t pid, const std::string& rest) {
    return std::string(prefix) + "Process " + name + " (" + std::to_string(pid) + ") has " + rest;
}

class ProcessKillerTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(sim::insideSandbox());
        ASSERT_NE(pidNamespace(), kHostPidNamespace);
        ASSERT_TRUE(holders::writeFile(under("10/file"), 16));
        ASSERT_TRUE(holders::writeFile(under("100/file"), 16));
        name_ = holders::forkedChildName();
    }
    std::string name_;
};

TEST_F(ProcessKillerTest, EachKindOfHoldIsFoundAndNamed) {
    const std::string dir = under("10");
    const std::string file = under("10/file");
    ASSERT_TRUE(holders::writeFile(under("10/map"), 8192));
    ASSERT_EQ(system(("cp /bin/sleep " + under("10/tool")).c_str()), 0);
    const std::string map = under("10/map");
    const std::string tool = under("10/tool");

    Holder byFd([&] { return open(file.c_str(), O_RDONLY) >= 0; });
    Holder byMap([&] {
        int fd = open(map.c_str(), O_RDONLY);
        void* m = fd >= 0 ? mmap(nullptr, 8192, PROT_READ, MAP_SHARED, fd, 0) : MAP_FAILED;
        close(fd);
        return m != MAP_FAILED;
    });
    Holder byCwd([&] { return chdir(dir.c_str()) == 0; });
    Holder byRoot([&] { return chroot(dir.c_str()) == 0; });
    Holder byExe([] { return true; }, tool.c_str(), "tool", "60");
    for (const Holder* h : {&byFd, &byMap, &byCwd, &byRoot, &byExe}) ASSERT_TRUE(h->ready());

    EXPECT_TRUE(ProcessKiller::checkFileDescriptorSymLinks(byFd.pid(), dir.c_str()));
    EXPECT_FALSE(ProcessKiller::checkFileDescriptorSymLinks(byCwd.pid(), dir.c_str()));
    EXPECT_TRUE(ProcessKiller::checkFileMaps(byMap.pid(), dir.c_str()));
    EXPECT_TRUE(ProcessKiller::checkSymLink(byExe.pid(), dir.c_str(), "exe"));
    EXPECT_FALSE(ProcessKiller::checkSymLink(byExe.pid(), dir.c_str(), "cwd"));

    liblog_clear();
    ProcessKiller::killProcessesWithOpenFiles(dir.c_str(), 0);
    std::vector<std::string> lines = holderLines();
    EXPECT_EQ(lines.size(), 5u);
    auto has = [&](const std::string& want) {
        for (const auto& l : lines)
            if (l == want) return true;
        return false;
    };
    EXPECT_TRUE(has(line("", name_, byFd.pid(), "open file " + file)));
    EXPECT_TRUE(has(line("", name_, byMap.pid(), "open filemap for " + map + "\n")));
    EXPECT_TRUE(has(line("", name_, byCwd.pid(), "cwd within " + dir)));
    EXPECT_TRUE(has(line("", name_, byRoot.pid(), "chroot within " + dir)));
    // A running executable is also mapped, and maps are looked at first.
    EXPECT_TRUE(has(line("", "tool", byExe.pid(), "open filemap for " + tool + "\n")));
    EXPECT_EQ(liblog_count("killing process with open files in " + dir, "ProcessKiller", ANDROID_LOG_ERROR), 1);

    // Asked about the executable file itself, the map line (which ends in a
    // newline) does not match but the exe link does.
    liblog_clear();
    ProcessKiller::KillProcessesWithOpenFilesViaReverse(tool.c_str(), 0);
    EXPECT_EQ(holderLines(),
              std::vector<std::string>{line("!@", "tool", byExe.pid(), "executable path within " + tool)});
    // Reporting only: nobody was signalled.
    for (const Holder* h : {&byFd, &byMap, &byCwd, &byRoot, &byExe}) EXPECT_TRUE(h->alive());
}

TEST_F(ProcessKillerTest, MatchRuleKeepsSiblingPrefixesApartAndRootMatchesNothing) {
    EXPECT_TRUE(ProcessKiller::pathMatchesMountPoint("/x/10", "/x/10"));
    EXPECT_TRUE(ProcessKiller::pathMatchesMountPoint("/x/10/a", "/x/10"));
    EXPECT_TRUE(ProcessKiller::pathMatchesMountPoint("/x/10a", "/x/"));
    EXPECT_FALSE(ProcessKiller::pathMatchesMountPoint("/x/100", "/x/10"));
    EXPECT_FALSE(ProcessKiller::pathMatchesMountPoint("/x/1", "/x/10"));
    EXPECT_FALSE(ProcessKiller::pathMatchesMountPoint("/anything", "/"));
    EXPECT_FALSE(ProcessKiller::pathMatchesMountPoint("x", "x"));

    // A holder of /x/100 is no holder of /x/10, and "/" or one character
    // matches nobody at all.
    Holder holder100([&] { return open(under("100/file").c_str(), O_RDONLY) >= 0 && chdir("/") == 0; });
    ASSERT_TRUE(holder100.ready());
    liblog_clear();
    for (const std::string& path : {under("10"), std::string("/"), std::string("d")}) {
        ProcessKiller::killProcessesWithOpenFiles(path.c_str(), 2);
        ProcessKiller::KillProcessesWithOpenFilesViaReverse(path.c_str(), SIGKILL);
    }
    EXPECT_TRUE(holderLines().empty());
    EXPECT_TRUE(holder100.alive());
}

TEST_F(ProcessKillerTest, ForwardActionsSendTermAndKillButLogHangup) {
    const std::string dir = under("10");
    Holder term([&] { return open(under("10/file").c_str(), O_RDONLY) >= 0; });
    ASSERT_TRUE(term.ready());
    liblog_clear();
    ProcessKiller::killProcessesWithOpenFiles(dir.c_str(), 1);
    EXPECT_EQ(term.reap(), SIGTERM);
    EXPECT_EQ(
        liblog_count("Sending SIGHUP to process " + std::to_string(term.pid()), "ProcessKiller", ANDROID_LOG_WARN), 1);

    Holder killed([&] { return signal(SIGTERM, SIG_IGN) != SIG_ERR && open(under("10/file").c_str(), O_RDONLY) >= 0; });
    ASSERT_TRUE(killed.ready());
    ProcessKiller::killProcessesWithOpenFiles(dir.c_str(), 2);
    EXPECT_EQ(killed.reap(), SIGKILL);
    EXPECT_EQ(
        liblog_count("Sending SIGKILL to process " + std::to_string(killed.pid()), "ProcessKiller", ANDROID_LOG_ERROR),
        1);
}

TEST_F(ProcessKillerTest, ReverseWalkSendsTheRawNumberAndVisitsNamesLastFirst) {
    // A signalled child stays a zombie until reaped; keep the waits short.
    devprofile::set("time.scale", "0.001");
    const std::string dir = under("10");
    const std::string file = under("10/file");
    Holder a([&] { return open(file.c_str(), O_RDONLY) >= 0; });
    Holder b([&] { return open(file.c_str(), O_RDONLY) >= 0; });
    Holder c([&] { return open(file.c_str(), O_RDONLY) >= 0; });
    for (const Holder* h : {&a, &b, &c}) ASSERT_TRUE(h->ready());

    liblog_clear();
    ProcessKiller::KillProcessesWithOpenFilesViaReverse(dir.c_str(), 0);
    std::vector<std::string> pids = {std::to_string(a.pid()), std::to_string(b.pid()), std::to_string(c.pid())};
    std::sort(pids.rbegin(), pids.rend());
    std::vector<std::string> want;
    for (const auto& p : pids) want.push_back(line("!@", name_, atoi(p.c_str()), "open file " + file));
    EXPECT_EQ(holderLines(), want);
    for (const Holder* h : {&a, &b, &c}) EXPECT_TRUE(h->alive());

    // 2 is SIGINT here, not SIGKILL: the number is not translated.
    ProcessKiller::KillProcessesWithOpenFilesViaReverse(dir.c_str(), 2);
    for (Holder* h : {&a, &b, &c}) EXPECT_EQ(h->reap(), SIGINT);
    EXPECT_EQ(liblog_count("Sending " + std::string(strsignal(SIGINT)) + " to process " + std::to_string(a.pid()),
                           "ProcessKiller", ANDROID_LOG_WARN),
              1);
}

TEST_F(ProcessKillerTest, HolderThatIgnoresTheSignalCostsOneAndAHalfSecondsAndIsLeftAlone) {
    const std::string dir = under("10");
    Holder stubborn(
        [&] { return signal(SIGTERM, SIG_IGN) != SIG_ERR && open(under("10/file").c_str(), O_RDONLY) >= 0; });
    ASSERT_TRUE(stubborn.ready());
    liblog_clear();
    auto start = std::chrono::steady_clock::now();
    ProcessKiller::KillProcessesWithOpenFilesViaReverse(dir.c_str(), SIGTERM);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(seconds, 1.45);
    EXPECT_LT(seconds, 3.0);
    EXPECT_TRUE(stubborn.alive());
    EXPECT_EQ(liblog_count("Wait for death /proc/" + std::to_string(stubborn.pid()) + " ", "ProcessKiller",
                           ANDROID_LOG_DEBUG),
              3);
}

TEST_F(ProcessKillerTest, SystemServerOfUid1000IsReportedNeverSignalled) {
    const std::string file = under("10/file");
    chmod(kRoot, 0755);
    auto grab = [&](uid_t uid) {
        return [file, uid] { return open(file.c_str(), O_RDONLY) >= 0 && setuid(uid) == 0; };
    };
    Holder framework(grab(1000), "/bin/sleep", "system_server", "60");
    Holder impostor(grab(0), "/bin/sleep", "system_server", "60");
    ASSERT_TRUE(framework.ready());
    ASSERT_TRUE(impostor.ready());
    EXPECT_EQ(ProcessKiller::getProcessUid(framework.pid()), 1000);

    liblog_clear();
    ProcessKiller::killProcessesWithOpenFiles(under("10").c_str(), 2);
    EXPECT_EQ(impostor.reap(), SIGKILL);
    EXPECT_TRUE(framework.alive());
    EXPECT_EQ(liblog_count("Process " + std::to_string(framework.pid()) + " is System server process.. do not kill it!",
                           "ProcessKiller", ANDROID_LOG_WARN),
              1);
    EXPECT_EQ(holderLines(), std::vector<std::string>{line("", "system_server", impostor.pid(), "open file " + file)});

    ProcessKiller::KillProcessesWithOpenFilesViaReverse(under("10").c_str(), SIGKILL);
    EXPECT_TRUE(framework.alive());
}

TEST(ProcessKillerInfo, PidTextsAndNames) {
    EXPECT_EQ(ProcessKiller::getPid("1234"), 1234);
    EXPECT_EQ(ProcessKiller::getPid(""), 0);
    EXPECT_EQ(ProcessKiller::getPid("12a"), -1);
    EXPECT_EQ(ProcessKiller::getPid("99999999999999999999"), -1);

    char name[8];
    ProcessKiller::getProcessName(999999, name, sizeof(name));
    EXPECT_STREQ(name, "???");
    ProcessKiller::getProcessName(getpid(), name, sizeof(name));
    EXPECT_EQ(strlen(name), sizeof(name) - 1);  // cut, and terminated
}

}  // namespace
