// The three namespace walkers against real app processes of the zygote
// stand-in, each in a mount namespace of its own: who is chosen, which
// source each view gets, and who loses a mount on the way down.
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <devprofile/DeviceProfile.h>
#include <persona/persona.h>

#include "AppProcess.h"
#include "manager/Pelk.h"
#include "support/Mounts.h"

namespace {

const char kStorage[] = "/storage/emulated/10";

// The roots (as mountinfo shows them) of every mount on point in the
// process's namespace, oldest first. /mnt is a filesystem of its own, so
// "/mnt/zanth/read/emulated/10" shows as "/zanth/read/emulated/10".
std::vector<std::string> rootsAt(pid_t pid, const std::string& point) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/mountinfo");
    std::vector<std::string> roots;
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        std::string id, parent, dev, root, mountPoint;
        fields >> id >> parent >> dev >> root >> mountPoint;
        if (mountPoint == point) roots.push_back(root);
    }
    return roots;
}

using Roots = std::vector<std::string>;

sim::AppOptions app(int user, int appId, sim::StorageView view = sim::StorageView::Default) {
    sim::AppOptions o;
    o.userId = user;
    o.appId = appId;
    o.view = view;
    return o;
}

class Namespaces : public testing::Test {
protected:
    void SetUp() override {
        for (const char* view : {"default", "read", "write"}) {
            ASSERT_TRUE(mounts::makeDirs(std::string("/mnt/zanth/") + view + "/emulated/10"));
        }
        // The apps' "/storage/emulated" is the daemon's: the point shows in every view.
        ASSERT_TRUE(mounts::makeDirs(kStorage));
        liblog_clear();
    }
    // Starts an app the test owns; a failed start fails the test.
    const sim::AppProcess& start(const sim::AppOptions& options) {
        mApps.emplace_back(new sim::AppProcess(options));
        EXPECT_TRUE(mApps.back()->started()) << mApps.back()->error();
        return *mApps.back();
    }
    // Gives a process the storage the way a remount does, without the engine.
    void bindIn(const sim::AppProcess& p) {
        std::string cmd = "nsenter -t " + p.pidText() + " -m mount --bind /mnt/zanth/default/emulated/10 " + kStorage;
        ASSERT_EQ(0, system(cmd.c_str()));
    }
    Pelk mPelk{getpid()};
    std::vector<std::unique_ptr<sim::AppProcess>> mApps;
};

TEST_F(Namespaces, TargetZeroLeavesShellOtherUsersAndTheDaemonsNamespaceAlone) {
    const sim::AppProcess& chosen = start(app(0, 10057));
    const sim::AppProcess& shell = start(app(0, 2000));
    const sim::AppProcess& otherUser = start(app(10, 10057));
    // The daemon's namespace shows a known view too, so that only the
    // namespace comparison keeps a process sharing it from being chosen.
    ASSERT_EQ(0, mount("/mnt/runtime/default", "/storage", nullptr, MS_BIND | MS_REC, nullptr));
    ASSERT_EQ(1, mPelk.getMountMode(std::to_string(getpid()).c_str()));
    sim::AppOptions server = app(0, 1000, sim::StorageView::None);
    server.ownMountNamespace = false;
    server.name = "system_server";
    const sim::AppProcess& shared = start(server);

    mPelk.remountProcesses(0, 10);
    EXPECT_EQ(Roots{"/zanth/default/emulated/10"}, rootsAt(chosen.pid(), kStorage));
    EXPECT_EQ(Roots{}, rootsAt(shell.pid(), kStorage));
    EXPECT_EQ(Roots{}, rootsAt(otherUser.pid(), kStorage));
    EXPECT_EQ(Roots{}, rootsAt(shared.pid(), kStorage)) << "the daemon's own namespace got the bind";
    EXPECT_EQ(1, liblog_count("Searching processes related to target: 0", "pelkd", ANDROID_LOG_DEBUG, LOG_ID_MAIN));

    // A second walk finds the storage there and binds nothing on top of it.
    mPelk.remountProcesses(0, 10);
    EXPECT_EQ(Roots{"/zanth/default/emulated/10"}, rootsAt(chosen.pid(), kStorage));
}

TEST_F(Namespaces, AnotherTargetChoosesThatUsersProcessesOnly) {
    const sim::AppProcess& user0 = start(app(0, 10057));
    const sim::AppProcess& user10 = start(app(10, 10057, sim::StorageView::Write));
    const sim::AppProcess& user11 = start(app(11, 10057));
    mPelk.remountProcesses(10, 10);
    EXPECT_EQ(Roots{}, rootsAt(user0.pid(), kStorage));
    EXPECT_EQ(Roots{"/zanth/write/emulated/10"}, rootsAt(user10.pid(), kStorage));
    EXPECT_EQ(Roots{}, rootsAt(user11.pid(), kStorage));
}

TEST_F(Namespaces, EachViewGetsItsOwnSourceAndAnUnknownRootGetsNothing) {
    const std::pair<sim::StorageView, Roots> cases[] = {
        {sim::StorageView::Default, {"/zanth/default/emulated/10"}},
        {sim::StorageView::Read, {"/zanth/read/emulated/10"}},
        {sim::StorageView::Write, {"/zanth/write/emulated/10"}},
        {sim::StorageView::Full, {}},  // "/runtime/full": no mount mode
        {sim::StorageView::None, {}},  // "/storage" is no view at all
    };
    std::vector<const sim::AppProcess*> apps;
    int appId = 10057;
    for (const auto& c : cases) apps.push_back(&start(app(0, appId++, c.first)));
    mPelk.remountProcesses(0, 10);
    for (size_t i = 0; i < apps.size(); ++i) {
        EXPECT_EQ(cases[i].second, rootsAt(apps[i]->pid(), kStorage)) << "view " << i;
    }
    EXPECT_FALSE(liblog_any_contains("Failed to mount external"));
}

TEST_F(Namespaces, AFailedBindIsLoggedAndTheWalkGoesOn) {
    const sim::AppProcess& first = start(app(0, 10057, sim::StorageView::Read));
    const sim::AppProcess& second = start(app(0, 10058));
    ASSERT_EQ(0, rmdir("/mnt/zanth/read/emulated/10"));
    mPelk.remountProcesses(0, 10);
    EXPECT_EQ(Roots{}, rootsAt(first.pid(), kStorage));
    EXPECT_EQ(Roots{"/zanth/default/emulated/10"}, rootsAt(second.pid(), kStorage));
    EXPECT_EQ(1, liblog_count("Failed to mount external: No such file or directory", "pelkd", ANDROID_LOG_ERROR,
                              LOG_ID_MAIN));
}

TEST_F(Namespaces, UnmountProcessesDetachesInEveryProcessOfTheUserOnly) {
    std::vector<const sim::AppProcess*> user10 = {&start(app(10, 10057, sim::StorageView::Read)),
                                                  &start(app(10, 10058, sim::StorageView::Write)),
                                                  &start(app(10, 2000))};
    const sim::AppProcess& user0 = start(app(0, 10057));
    for (const sim::AppProcess* p : user10) bindIn(*p);
    bindIn(user0);
    liblog_clear();

    mPelk.unmountProcesses(10, kStorage);
    for (const sim::AppProcess* p : user10) {
        EXPECT_EQ(Roots{}, rootsAt(p->pid(), kStorage)) << p->pid();
        EXPECT_EQ(1, liblog_count("Found matching PID " + p->pidText(), "pelkd", ANDROID_LOG_DEBUG));
    }
    EXPECT_EQ(Roots{"/zanth/default/emulated/10"}, rootsAt(user0.pid(), kStorage));
    EXPECT_EQ(1, liblog_count("Unmount /storage/emulated/10 related to target user[10]", "pelkd", ANDROID_LOG_DEBUG));
    EXPECT_EQ(3, liblog_count("Kick out /storage/emulated/10: ", "pelkd", ANDROID_LOG_DEBUG));

    // Nothing left to detach: nobody is found again.
    liblog_clear();
    mPelk.unmountProcesses(10, kStorage);
    EXPECT_FALSE(liblog_any_contains("Found matching PID"));
}

class PrivateZanth : public Namespaces {
protected:
    void SetUp() override {
        Namespaces::SetUp();
        devprofile::set("time.scale", "0.001");
        // The daemon's own namespace has the path mounted too.
        ASSERT_EQ(0, mount("/mnt/zanth/write/emulated/10", kStorage, nullptr, MS_BIND, nullptr));
    }
};

TEST_F(PrivateZanth, DetachesHereAndInEveryContainerProcessInTenPasses) {
    devprofile::set("user.10", "zanth");
    devprofile::set("user.11", "zanth");
    const sim::AppProcess& of10 = start(app(10, 10057));
    const sim::AppProcess& of11 = start(app(11, 10057, sim::StorageView::Read));
    const sim::AppProcess& of0 = start(app(0, 10057));
    for (const sim::AppProcess* p : {&of10, &of11, &of0}) bindIn(*p);
    // A container process that has ended but not been reaped has no
    // namespace left to open: every pass says so, which counts the passes.
    sim::AppOptions ended = app(10, 10099);
    ended.command = {"true"};
    const sim::AppProcess& zombie = start(ended);
    ASSERT_NE(-1, zombie.pid());
    for (int i = 0; i < 1000 && zombie.alive(); ++i) usleep(1000);
    liblog_clear();

    EXPECT_EQ(0, mPelk.unmountPrivateZanthProcesses(kStorage));
    EXPECT_EQ(0, isMountedPath(kStorage));
    EXPECT_EQ(1, liblog_count("Drive /storage/emulated/10 detaching successfully\n", "pelkd", ANDROID_LOG_INFO,
                              LOG_ID_SYSTEM));
    EXPECT_EQ(Roots{}, rootsAt(of10.pid(), kStorage));
    EXPECT_EQ(Roots{}, rootsAt(of11.pid(), kStorage));
    EXPECT_EQ(Roots{"/zanth/default/emulated/10"}, rootsAt(of0.pid(), kStorage)) << "user 0 is no container";
    for (const sim::AppProcess* p : {&of10, &of11}) {
        EXPECT_EQ(
            1, liblog_count("Drive /storage/emulated/10 unmounted successfully for " + std::to_string(p->uid()) + "\n",
                            "pelkd", ANDROID_LOG_INFO, LOG_ID_SYSTEM));
    }
    EXPECT_EQ(10, liblog_count("Failed to open namespace for " + zombie.pidText(), "pelkd", ANDROID_LOG_ERROR));
}

TEST_F(PrivateZanth, WithoutContainersNothingIsTouched) {
    const sim::AppProcess& of10 = start(app(10, 10057));
    bindIn(of10);
    liblog_clear();
    EXPECT_EQ(0, mPelk.unmountPrivateZanthProcesses(kStorage));
    EXPECT_EQ(1, isMountedPath(kStorage));
    EXPECT_EQ(Roots{"/zanth/default/emulated/10"}, rootsAt(of10.pid(), kStorage));
    EXPECT_TRUE(liblog_records().empty());
}

}  // namespace
