// pelk-tags shows the marks the libraries left, and nothing through links.
#include <dlp/dlp.h>
#include <gtest/gtest.h>
#include <sdp/sdp.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "Sandbox.h"
#include "support/Files.h"

namespace {

std::string runTags(const std::string& args, int* status) {
    FILE* pipe = popen((sim::toolPath("pelk-tags") + " " + args + " 2>&1").c_str(), "r");
    std::string out;
    char buf[4096];
    size_t n;
    while (pipe && (n = fread(buf, 1, sizeof(buf), pipe)) > 0) out.append(buf, n);
    int raw = pipe ? pclose(pipe) : -1;
    *status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return out;
}

}  // namespace

TEST(TagsTool, ShowsEachEntrysMarksDepthFirst) {
    ASSERT_TRUE(testfs::writeFile("/data/t/b/c.txt", "x"));
    ASSERT_TRUE(testfs::writeFile("/data/t/a.txt", "x"));
    ASSERT_EQ(symlink("a.txt", "/data/t/link"), 0);
    char top[] = "/data/t";
    char sub[] = "/data/t/b";
    char file[] = "/data/t/a.txt";
    ASSERT_EQ(set_sensitive(10, top), 0);
    ASSERT_EQ(set_protected(sub), 0);
    ASSERT_EQ(set_dlp_file_expiry_time(file, 86400L), 0);

    int status = -1;
    std::string out = runTags("/data/t", &status);
    EXPECT_EQ(status, 0);
    auto pad = [](const std::string& path) { return path + std::string(49 - path.size(), ' '); };
    EXPECT_EQ(out, pad("/data/t") + "sensitive=10\n" + pad("/data/t/a.txt") +
                       "expires=1970-01-02 00:00:00 UTC (86400)\n" + pad("/data/t/b") + "protected\n" +
                       pad("/data/t/b/c.txt") + "-\n" + pad("/data/t/link") + "(symbolic link)\n");

    runTags("/data/none", &status);
    EXPECT_EQ(status, 1);
}
