#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Sandbox.h"
#include "devprofile/DeviceProfile.h"

namespace {

std::string slurp(const std::string& path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

bool mounted(const std::string& point) {
    return slurp("/proc/self/mountinfo").find(" " + point + " ") != std::string::npos;
}

}  // namespace

TEST(Sandbox, OnlyTheSandboxProcessesAreVisible) {
    EXPECT_TRUE(sim::insideSandbox());
    // The sandbox's init is pid 1 and the test process its only child. The
    // test's own number is not fixed: a runtime thread of init (a thread
    // sanitizer starts one) may have taken the next one first.
    EXPECT_EQ(getppid(), 1);
    std::vector<int> processes;
    if (DIR* proc = opendir("/proc")) {
        while (dirent* entry = readdir(proc)) {
            char* end = nullptr;
            long pid = strtol(entry->d_name, &end, 10);
            if (end != entry->d_name && *end == '\0') processes.push_back(static_cast<int>(pid));
        }
        closedir(proc);
    }
    std::sort(processes.begin(), processes.end());
    EXPECT_EQ(processes, (std::vector<int>{1, getpid()}));
}

TEST(Sandbox, MountsStayInsideAndVanishAtReset) {
    ASSERT_EQ(mount("t", "/data/local/tmp", "tmpfs", 0, nullptr), 0);
    EXPECT_TRUE(mounted("/data/local/tmp"));
    // The host's mount table, seen from a process outside our namespace,
    // is not reachable from here at all; the nearest proof is that the host
    // root is gone and this mount is ours alone.
    EXPECT_NE(access("/.oldroot", F_OK), 0);
    ASSERT_EQ(sim::resetDevice(), 0);
    EXPECT_FALSE(mounted("/data/local/tmp"));
}

TEST(Sandbox, EachTestStartsFromACleanTree_Writes) {
    std::ofstream("/data/leftover") << "x";
    ASSERT_EQ(access("/data/leftover", F_OK), 0);
    ASSERT_TRUE(devprofile::set("user.150", "zanth"));
}

TEST(Sandbox, EachTestStartsFromACleanTree_Sees) {
    EXPECT_NE(access("/data/leftover", F_OK), 0);
    EXPECT_FALSE(devprofile::isContainerUser(150));
    EXPECT_EQ(devprofile::get("fbe"), "1");
    struct stat st;
    ASSERT_EQ(stat("/data/misc_de", &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 01771u);
    EXPECT_EQ(st.st_gid, 9998u);
}

TEST(Sandbox, ResetKillsLeftoverProcesses) {
    pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    ASSERT_GT(child, 0);
    ASSERT_EQ(sim::resetDevice(), 0);
    EXPECT_NE(kill(child, 0), 0);
}

TEST(Sandbox, HostSystemFoldersAreReadOnly) {
    int fd = open("/usr/pelk-should-not-exist", O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(errno, EROFS);
}
