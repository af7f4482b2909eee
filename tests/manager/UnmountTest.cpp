// Taking areas down: the seven tries with the process killer between them,
// against real mounts and real holder processes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <signal.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include <devprofile/DeviceProfile.h>
#include <persona/persona.h>

#include "BusyKernel.h"
#include "manager/Pelk.h"
#include "support/Holders.h"
#include "support/Mounts.h"

namespace {

const char kLower[] = "/data/zanth/data/10";
const char kUpper[] = "/data/user/10";

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool bindDir(const std::string& src, const std::string& dst) {
    return mounts::makeDirs(src) && mounts::makeDirs(dst) &&
           mount(src.c_str(), dst.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

// The unmount and killer lines about one path and one holder, shortened to
// a letter each: F failed try, R holder reported, H hangup sent, I interrupt
// sent, G given up, S unmounted.
std::string eventsFor(const std::string& path, pid_t holder) {
    const std::string pid = std::to_string(holder);
    std::string events;
    for (const LogRecord& r : liblog_records()) {
        const std::string& t = r.text;
        if (t.rfind("Failed to unmount " + path + " (", 0) == 0)
            events += 'F';
        else if (t.rfind("!@Process ", 0) == 0 && t.find(" (" + pid + ") has ") != std::string::npos)
            events += 'R';
        else if (t == "Sending Hangup to process " + pid)
            events += 'H';
        else if (t == "Sending Interrupt to process " + pid)
            events += 'I';
        else if (t.rfind("Giving up on unmount " + path + " (", 0) == 0)
            events += 'G';
        else if (t == path + " sucessfully unmounted")
            events += 'S';
    }
    return events;
}

class Unmount : public testing::Test {
protected:
    void SetUp() override {
        devprofile::set("time.scale", "0.01");
        ASSERT_TRUE(holders::writeFile(std::string(kLower) + "/kept", 4096));
        ASSERT_TRUE(bindDir(kLower, kUpper));
        liblog_clear();
    }
    // Runs doUnmount in a child whose kernel calls it busy while busy() holds.
    int doUnmountWhileBusy(const std::function<bool()>& busy) {
        return sim::runWithBusyKernel([this] { return mPelk.doUnmount(kUpper) == 0 ? 0 : 1; }, busy);
    }
    Pelk mPelk{getpid()};
};

TEST_F(Unmount, HoldersThatIgnoreEverySignalMakeTheSeventhTryGiveUp) {
    holders::Holder holder([] {
        signal(SIGHUP, SIG_IGN);
        signal(SIGINT, SIG_IGN);
        return open("/data/user/10/kept", O_RDONLY) >= 0;
    });
    ASSERT_TRUE(holder.ready());

    EXPECT_EQ(1, doUnmountWhileBusy([&] { return holder.alive(); }));
    // Report, report, report, hangup, interrupt, report: one round after
    // each of the six failed tries.
    EXPECT_EQ("FRFRFRFRHFRIFRG", eventsFor(kUpper, holder.pid()));
    EXPECT_EQ(6, liblog_count("Failed to unmount /data/user/10 (Device or resource busy)", "pelkd", ANDROID_LOG_ERROR,
                              LOG_ID_SYSTEM));
    EXPECT_EQ(1, liblog_count("Giving up on unmount /data/user/10 (Device or resource busy)", "pelkd",
                              ANDROID_LOG_ERROR, LOG_ID_SYSTEM));
    EXPECT_TRUE(holder.alive());
    EXPECT_EQ(1, isMountedPath(kUpper)) << "a refused unmount leaves the mount";
    EXPECT_EQ(4096u, readFile(std::string(kLower) + "/kept").size());
}

TEST_F(Unmount, AHolderThatGoesOnHangupLetsTheNextTrySucceed) {
    // A small program (not a fork of this one) ends quickly once signalled;
    // it keeps the descriptor opened before the exec.
    devprofile::set("time.scale", "0.1");
    holders::Holder holder([] { return open("/data/user/10/kept", O_RDONLY) >= 0; }, "/bin/sleep", "sleep", "60");
    ASSERT_TRUE(holder.ready());

    EXPECT_EQ(0, doUnmountWhileBusy([&] { return holder.alive(); }));
    EXPECT_EQ("FRFRFRFRHS", eventsFor(kUpper, holder.pid()));
    EXPECT_EQ(SIGHUP, holder.reap());
    EXPECT_EQ(0, isMountedPath(kUpper));
    EXPECT_EQ(4096u, readFile(std::string(kLower) + "/kept").size()) << "the lower directory keeps its data";
}

TEST_F(Unmount, NotAMountPointOrNoSuchPathIsDoneAtTheFirstTry) {
    ASSERT_TRUE(mounts::makeDirs("/data/plain"));
    EXPECT_EQ(0, mPelk.doUnmount("/data/plain"));
    EXPECT_EQ(0, mPelk.doUnmount("/data/no/such/dir"));
    EXPECT_EQ(1, liblog_count("/data/plain sucessfully unmounted", "pelkd", ANDROID_LOG_INFO, LOG_ID_SYSTEM));
    EXPECT_EQ(1, liblog_count("/data/no/such/dir sucessfully unmounted", "pelkd", ANDROID_LOG_INFO));
    EXPECT_FALSE(liblog_any_contains("Failed to unmount"));
}

TEST_F(Unmount, AnSdcardAreaLosesItsThreeViewsFirst) {
    devprofile::set("fbe", "0");
    Partition sdcard(10, PARTITION_CE_SDCARD, nullptr, false);
    ASSERT_TRUE(holders::writeFile(std::string(sdcard.mSrcPath) + "/DCIM/photo", 100));
    ASSERT_TRUE(bindDir(sdcard.mSrcPath, sdcard.mMntPath));  // same directory without FBE
    const char* views[] = {"/mnt/zanth/default/emulated/10", "/mnt/zanth/read/emulated/10",
                           "/mnt/zanth/write/emulated/10"};
    for (const char* view : views) ASSERT_TRUE(bindDir(sdcard.mMntPath, view));
    liblog_clear();

    EXPECT_EQ(0, mPelk.unmount(&sdcard));
    for (const char* view : views) EXPECT_EQ(0, isMountedPath(view)) << view;
    EXPECT_EQ(0, isMountedPath(sdcard.mMntPath));
    std::vector<std::string> lines;
    for (const LogRecord& r : liblog_records()) {
        if (r.text.find("unmounted") != std::string::npos || r.text.rfind("Unmounting", 0) == 0)
            lines.push_back(r.text);
    }
    EXPECT_EQ((std::vector<std::string>{
                  "/mnt/zanth/default/emulated/10 sucessfully unmounted",
                  "/mnt/zanth/read/emulated/10 sucessfully unmounted",
                  "/mnt/zanth/write/emulated/10 sucessfully unmounted",
                  "Unmounting </data/zanth/sdcard/10>",
                  "/data/zanth/sdcard/10 sucessfully unmounted",
              }),
              lines);
    EXPECT_EQ(100u, readFile(std::string(sdcard.mSrcPath) + "/DCIM/photo").size());
}

TEST_F(Unmount, AViewThatStaysBusyKeepsTheAreaMounted) {
    ASSERT_TRUE(bindDir("/data/privatemode", "/mnt/runtime/default/Private"));
    Partition privateMode(0, PARTITION_PRIVATE_MODE, nullptr, false);
    ASSERT_TRUE(bindDir(privateMode.mSrcPath, privateMode.mMntPath));
    liblog_clear();

    Partition* area = &privateMode;
    EXPECT_EQ(1, sim::runWithBusyKernel([&] { return mPelk.unmount(area) == -1 ? 1 : 0; }, [] { return true; }));
    EXPECT_EQ(1, liblog_count("Giving up on unmount /mnt/runtime/default/Private (Device or resource busy)"));
    EXPECT_EQ(0, liblog_count("Unmounting </data/privatemode>")) << "the area itself is not tried";
    EXPECT_EQ(1, isMountedPath(privateMode.mMntPath));
}

TEST_F(Unmount, AreasThatAreNotMountedOrHaveNoPaths) {
    Partition deData(10, PARTITION_DE_DATA, nullptr, false);
    EXPECT_EQ(0, mPelk.unmount(&deData));
    EXPECT_EQ(1, liblog_count("/data/user_de/10 is not mounted", "pelkd", ANDROID_LOG_DEBUG));

    // An unknown type has empty paths: it is simply not mounted.
    std::ifstream before("/proc/self/mountinfo");
    std::string tableBefore((std::istreambuf_iterator<char>(before)), std::istreambuf_iterator<char>());
    Partition unknown(10, 'z', nullptr, false);
    EXPECT_EQ(0, mPelk.unmount(&unknown));
    EXPECT_EQ(1, liblog_count("Unmounting <>", "pelkd", ANDROID_LOG_INFO));
    EXPECT_EQ(1, liblog_count(" is not mounted"));
    std::ifstream after("/proc/self/mountinfo");
    EXPECT_EQ(tableBefore, std::string((std::istreambuf_iterator<char>(after)), std::istreambuf_iterator<char>()));

    EXPECT_EQ(-1, mPelk.unmount(nullptr));
    EXPECT_EQ(1, liblog_count("given partition obj is NULL", "pelkd", ANDROID_LOG_ERROR));
}

}  // namespace
