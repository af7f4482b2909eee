#include <fcntl.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>

#include "base/UniqueFd.h"
#include "tools/CloseOnExec.h"

namespace {

bool closesOnExec(const pelk::UniqueFd& fd) { return (fcntl(fd.get(), F_GETFD) & FD_CLOEXEC) != 0; }

pelk::UniqueFd openPlain(const char* path) { return pelk::UniqueFd(open(path, O_RDWR | O_CREAT, 0600)); }

class CloseOnExec : public testing::Test {
protected:
    void SetUp() override { liblog_clear(); }
};

}  // namespace

TEST_F(CloseOnExec, MarksAndClearsExactlyTheDescriptorsOnThePath) {
    pelk::UniqueFd first = openPlain("/dev/qseecom");
    pelk::UniqueFd second = openPlain("/dev/qseecom");
    pelk::UniqueFd other = openPlain("/data/local/tmp/other");
    pelk::UniqueFd otherMarked(open("/data/local/tmp/other", O_RDONLY | O_CLOEXEC));
    // A name that merely begins with the path is another file.
    pelk::UniqueFd lookalike = openPlain("/dev/qseecom2");
    ASSERT_TRUE(first.ok() && second.ok() && other.ok() && otherMarked.ok() && lookalike.ok());

    changeInheritTypeForFile("/dev/qseecom", true);
    EXPECT_TRUE(closesOnExec(first));
    EXPECT_TRUE(closesOnExec(second));
    EXPECT_FALSE(closesOnExec(other));
    EXPECT_FALSE(closesOnExec(lookalike));

    changeInheritTypeForFile("/dev/qseecom", false);
    EXPECT_FALSE(closesOnExec(first));
    EXPECT_FALSE(closesOnExec(second));
    EXPECT_TRUE(closesOnExec(otherMarked));

    EXPECT_EQ(liblog_count("changeInheritTypeForFile::Entering\n", "", ANDROID_LOG_DEBUG, LOG_ID_MAIN), 2);
}

TEST_F(CloseOnExec, EmptyOrNullPathChangesNothing) {
    pelk::UniqueFd fd = openPlain("/dev/qseecom");
    ASSERT_TRUE(fd.ok());
    changeInheritTypeForFile("", true);
    changeInheritTypeForFile(nullptr, true);
    EXPECT_FALSE(closesOnExec(fd));
    EXPECT_EQ(liblog_count("changeInheritTypeForFile::Entering\n"), 2);
}
