// The host copy engine's one real operation: CopyFile copies content, mode
// and owner; the source stays as it was.
#include <fcntl.h>
#include <fileops/CopyFileImpl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>

#include "devprofile/DeviceProfile.h"

namespace {

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

struct stat statOf(const char* path) {
    struct stat st = {};
    lstat(path, &st);
    return st;
}

}  // namespace

TEST(CopyFile, CopiesContentModeAndTheGivenOwner) {
    std::string data(200000, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 31 + 7);
    std::ofstream("/data/local/tmp/src", std::ios::binary) << data;
    ASSERT_EQ(chmod("/data/local/tmp/src", 06750), 0);
    struct stat st = statOf("/data/local/tmp/src");

    CopyFileImpl engine;
    ASSERT_EQ(engine.CopyFile("/data/local/tmp/src", "/data/local/tmp/dst.tmp", &st, 10057, 1015), 0);
    EXPECT_EQ(readFile("/data/local/tmp/dst.tmp"), data);
    struct stat copy = statOf("/data/local/tmp/dst.tmp");
    EXPECT_EQ(copy.st_mode & 07777, 06750u);  // set-id bits survive the change of owner
    EXPECT_EQ(copy.st_uid, 10057u);
    EXPECT_EQ(copy.st_gid, 1015u);
    // The source is untouched.
    EXPECT_EQ(readFile("/data/local/tmp/src"), data);
    EXPECT_EQ(statOf("/data/local/tmp/src").st_uid, 0u);

    // An existing target is replaced; an empty source copies as empty.
    std::ofstream("/data/local/tmp/empty");
    EXPECT_EQ(engine.CopyFile("/data/local/tmp/empty", "/data/local/tmp/dst.tmp", nullptr, 0, 0), 0);
    EXPECT_EQ(statOf("/data/local/tmp/dst.tmp").st_size, 0);
}

TEST(CopyFile, FailuresAnswerANegativeErrnoAndLeaveNoTarget) {
    CopyFileImpl engine;
    EXPECT_EQ(engine.CopyFile("/data/local/tmp/missing", "/data/local/tmp/dst", nullptr, 0, 0), -ENOENT);
    EXPECT_NE(access("/data/local/tmp/dst", F_OK), 0);
    std::ofstream("/data/local/tmp/src") << "x";
    EXPECT_EQ(engine.CopyFile("/data/local/tmp/src", "/data/local/tmp/none/dst", nullptr, 0, 0), -ENOENT);
    EXPECT_EQ(engine.CopyFile("/data/local/tmp", "/data/local/tmp/dst", nullptr, 0, 0), -EINVAL);
    ASSERT_EQ(symlink("/data/local/tmp/src", "/data/local/tmp/link"), 0);
    EXPECT_EQ(engine.CopyFile("/data/local/tmp/link", "/data/local/tmp/dst", nullptr, 0, 0), -ELOOP);
    EXPECT_EQ(engine.CopyFile(nullptr, "/data/local/tmp/dst", nullptr, 0, 0), -EINVAL);
    devprofile::failNext("CopyFile");
    EXPECT_LT(engine.CopyFile("/data/local/tmp/src", "/data/local/tmp/dst", nullptr, 0, 0), 0);
    EXPECT_NE(access("/data/local/tmp/dst", F_OK), 0);
    EXPECT_EQ(readFile("/data/local/tmp/src"), "x");
}
