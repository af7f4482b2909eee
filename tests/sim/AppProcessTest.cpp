// The zygote stand-in: app processes with their uid, a mount namespace of
// their own and a "/storage" view whose root reads as on a device.
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "AppProcess.h"

namespace {

// The root of the first "/storage" line of the process's mountinfo (what
// the daemon reads to learn an app's view), or "" when there is none.
std::string storageRoot(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/mountinfo");
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        std::string id, parent, dev, root, point;
        fields >> id >> parent >> dev >> root >> point;
        if (point == "/storage") return root;
    }
    return "";
}

uid_t ownerOf(const std::string& path) {
    struct stat st = {};
    stat(path.c_str(), &st);
    return st.st_uid;
}

std::string link(const std::string& path) {
    char buf[256] = {0};
    return readlink(path.c_str(), buf, sizeof(buf) - 1) > 0 ? buf : "";
}

std::string cmdline(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/cmdline");
    std::string first;
    std::getline(in, first, '\0');
    return first;
}

sim::AppOptions app(int user, int appId, sim::StorageView view) {
    sim::AppOptions o;
    o.userId = user;
    o.appId = appId;
    o.view = view;
    return o;
}

}  // namespace

TEST(AppProcess, EachViewShowsItsRootAndTheAppItsUid) {
    const std::pair<sim::StorageView, const char*> views[] = {{sim::StorageView::Default, "/runtime/default"},
                                                              {sim::StorageView::Read, "/runtime/read"},
                                                              {sim::StorageView::Write, "/runtime/write"},
                                                              {sim::StorageView::Full, "/runtime/full"}};
    for (const auto& v : views) {
        sim::AppProcess p(app(10, 10057, v.first));
        ASSERT_TRUE(p.started()) << p.error();
        EXPECT_EQ(storageRoot(p.pid()), v.second);
        EXPECT_EQ(ownerOf("/proc/" + p.pidText()), 1010057u);
        EXPECT_EQ(p.uid(), 1010057u);
        EXPECT_NE(link("/proc/" + p.pidText() + "/ns/mnt"), link("/proc/self/ns/mnt"));
    }
    sim::AppProcess none(app(0, 10057, sim::StorageView::None));
    ASSERT_TRUE(none.started()) << none.error();
    EXPECT_EQ(storageRoot(none.pid()), "");
}

TEST(AppProcess, TheDaemonsEmulatedDirectoriesAreInEveryView) {
    sim::AppProcess reader(app(0, 10057, sim::StorageView::Read));
    sim::AppProcess writer(app(0, 10058, sim::StorageView::Write));
    ASSERT_TRUE(reader.started() && writer.started());
    // Made in the daemon's namespace after the apps started.
    ASSERT_EQ(mkdir("/storage/emulated/10", 0770), 0);
    for (const sim::AppProcess* p : {&reader, &writer}) {
        struct stat st;
        EXPECT_EQ(stat(("/proc/" + p->pidText() + "/root/storage/emulated/10").c_str(), &st), 0);
    }
    EXPECT_EQ(access("/data/media/10", F_OK), 0);
}

TEST(AppProcess, MountsOfTheDaemonDoNotReachARunningApp) {
    sim::AppProcess p(app(0, 10057, sim::StorageView::Default));
    ASSERT_TRUE(p.started());
    ASSERT_EQ(mkdir("/data/local/tmp/view", 0755), 0);
    ASSERT_EQ(mount("tmpfs", "/data/local/tmp/view", "tmpfs", 0, nullptr), 0);
    std::ifstream in("/proc/" + p.pidText() + "/mountinfo");
    std::string table((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(table.find(" /data/local/tmp/view "), std::string::npos);
}

TEST(AppProcess, ShellAndSystemServerStartToo) {
    sim::AppOptions shell = app(0, 2000, sim::StorageView::Default);
    sim::AppProcess sh(shell);
    ASSERT_TRUE(sh.started()) << sh.error();
    EXPECT_EQ(ownerOf("/proc/" + sh.pidText()), 2000u);

    sim::AppOptions server = app(0, 1000, sim::StorageView::None);
    server.ownMountNamespace = false;
    server.name = "system_server";
    server.command = {"sleep", "1000"};
    sim::AppProcess ss(server);
    ASSERT_TRUE(ss.started()) << ss.error();
    EXPECT_EQ(cmdline(ss.pid()), "system_server");
    EXPECT_EQ(ownerOf("/proc/" + ss.pidText()), 1000u);
    EXPECT_EQ(link("/proc/" + ss.pidText() + "/ns/mnt"), link("/proc/self/ns/mnt"));
    EXPECT_TRUE(ss.alive());
    EXPECT_EQ(ss.stop(SIGTERM) & 0x7f, SIGTERM);
    EXPECT_FALSE(ss.alive());
}

TEST(AppProcess, TheCommandRunsAsTheAppInsideItsView) {
    sim::AppOptions o = app(10, 10057, sim::StorageView::Write);
    o.groups = {1015, 9997};
    o.command = {"sh", "-c",
                 "test \"$(id -u)\" = 1010057 && test \"$(id -g)\" = 1010057 && "
                 "test \"$(id -G)\" = '1010057 1015 9997' && test -d /storage/emulated && test \"$(pwd)\" = /"};
    sim::AppProcess p(o);
    ASSERT_TRUE(p.started()) << p.error();
    int status = p.wait(10000);
    ASSERT_NE(status, -1);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(AppProcess, AFailedStartSaysWhy) {
    sim::AppOptions o = app(0, 10057, sim::StorageView::Default);
    o.command = {"/system/bin/no-such-program"};
    sim::AppProcess p(o);
    EXPECT_FALSE(p.started());
    EXPECT_EQ(p.error(), "exec: No such file or directory");
    EXPECT_EQ(p.stop(), -1);
}

TEST(AppProcess, TheProgramStartsADetachedApp) {
    FILE* out =
        popen("zygote-sim --user 10 --app 10061 --view read --name com.example.app --detach -- sleep 1000", "r");
    ASSERT_NE(out, nullptr);
    int pid = 0;
    EXPECT_EQ(fscanf(out, "%d", &pid), 1);
    EXPECT_EQ(pclose(out), 0);
    ASSERT_GT(pid, 0);
    EXPECT_EQ(storageRoot(pid), "/runtime/read");
    EXPECT_EQ(ownerOf("/proc/" + std::to_string(pid)), 1010061u);
    EXPECT_EQ(cmdline(pid), "com.example.app");
    kill(pid, SIGKILL);

    EXPECT_EQ(WEXITSTATUS(system("zygote-sim --view sideways -- true 2>/dev/null")), 2);
    EXPECT_EQ(WEXITSTATUS(system("zygote-sim --app 10057 2>/dev/null")), 2);
    EXPECT_EQ(WEXITSTATUS(system("zygote-sim --app 2000 --view read -- sh -c 'test $(id -u) = 2000'")), 0);
    EXPECT_EQ(WEXITSTATUS(system("zygote-sim -- /no/such 2>/dev/null")), 1);
}
