// busy-kernel refuses a command's unmount of a path exactly while a process
// holds a file under it, and lets every other call through.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <persona/persona.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "BusyKernel.h"
#include "Sandbox.h"
#include "base/UniqueFd.h"
#include "support/Mounts.h"

namespace {

int run(const std::string& command) {
    int raw = system(command.c_str());
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

// The device's umount2 through busy-kernel: 0 when the path came down.
int umountUnder(const std::string& held, const std::string& target) {
    return run(sim::toolPath("busy-kernel") + " " + held + " -- umount " + target + " 2>/dev/null");
}

}  // namespace

TEST(BusyKernelTool, RefusesTheHeldPathOnlyWhileItIsHeld) {
    ASSERT_TRUE(mounts::mountTmpfs("/data/busy/held"));
    ASSERT_TRUE(mounts::mountTmpfs("/data/busy/other"));
    pelk::UniqueFd file(open("/data/busy/held/f", O_CREAT | O_RDWR | O_CLOEXEC, 0600));
    ASSERT_TRUE(file.ok());
    EXPECT_TRUE(sim::heldUnder("/data/busy/held"));
    EXPECT_FALSE(sim::heldUnder("/data/busy/hel"));  // a name that only starts the same

    EXPECT_NE(0, umountUnder("/data/busy/held", "/data/busy/held"));
    EXPECT_TRUE(isMountedPath("/data/busy/held"));
    EXPECT_EQ(0, umountUnder("/data/busy/held", "/data/busy/other"));  // another path goes through
    EXPECT_FALSE(isMountedPath("/data/busy/other"));

    file.reset();
    EXPECT_FALSE(sim::heldUnder("/data/busy/held"));
    EXPECT_EQ(0, umountUnder("/data/busy/held", "/data/busy/held"));
    EXPECT_FALSE(isMountedPath("/data/busy/held"));
}

TEST(BusyKernelTool, UsageAndTheCommandsStatus) {
    EXPECT_EQ(2, run(sim::toolPath("busy-kernel") + " /data 2>/dev/null"));
    EXPECT_EQ(2, run(sim::toolPath("busy-kernel") + " -- true 2>/dev/null"));
    // A command that ends at once must still be waited for and its status passed on, every time.
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(3, run(sim::toolPath("busy-kernel") + " /data -- sh -c 'exit 3'")) << "run " << i;
    }
}
