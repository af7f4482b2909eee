#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

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
    // The sandbox's init is pid 1 and the test process its only child.
    EXPECT_EQ(getpid(), 2);
    EXPECT_EQ(getppid(), 1);
    int processes = 0;
    for (int pid = 1; pid < 1000; ++pid)
        if (access(("/proc/" + std::to_string(pid)).c_str(), F_OK) == 0) ++processes;
    EXPECT_EQ(processes, 2);
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
