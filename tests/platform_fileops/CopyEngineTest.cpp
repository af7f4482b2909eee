// The copy engine's container operations on real trees: whole and chunked
// copies, cancels, directory scans and permission migration, and the paths
// they refuse without touching anything outside the tree they name.
#include <fcntl.h>
#include <fileops/CopyFileImpl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "support/Files.h"

namespace {

using testfs::exists;
using testfs::readFile;
using testfs::statOf;
using testfs::writeFile;

const std::string kRoot = "/data/media/10";
const std::string kOutside = "/data/outside";

class CopyEngine : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(testfs::makeDirs(kRoot));
        ASSERT_TRUE(writeFile(kOutside + "/secret", "outside"));
        ASSERT_EQ(0, chmod((kOutside + "/secret").c_str(), 0600));
    }
    // The outside tree exactly as SetUp left it.
    void expectOutsideUntouched() {
        EXPECT_EQ("outside", readFile(kOutside + "/secret"));
        EXPECT_EQ(0600u, testfs::modeOf(kOutside + "/secret"));
        EXPECT_EQ(0u, statOf(kOutside + "/secret").st_uid);
        EXPECT_FALSE(exists(kOutside + "/copy"));
    }
    int copy(const std::string& src, const std::string& dst) {
        std::string s = src, d = dst;
        return mEngine.CopyCommand(&s[0], 10, &d[0], 11, 0);
    }
    int chunk(const std::string& src, const std::string& dst, long long offset, long length, long long size) {
        return mEngine.copyChunk(src.c_str(), 10, dst.c_str(), 11, offset, length, size, 0);
    }
    int migrate(const std::string& path, int uid, int gid, int mode) {
        std::string p = path;
        return mEngine.changePermissionMigrationCommand(&p[0], uid, gid, mode);
    }
    // Every name of a directory, collected over as many scans as it takes.
    std::vector<std::string> scanAll(const std::string& dir, int* calls) {
        std::vector<std::string> names;
        char text[CopyFileImpl::SCAN_TEXT_SIZE];
        for (*calls = 1;; ++*calls) {
            int rc = mEngine.getDirNextFile(dir.c_str(), text, static_cast<long>(names.size()));
            if (rc != 0) {
                EXPECT_EQ(1, rc);
                EXPECT_STREQ("", text);
                return names;
            }
            std::string list(text);
            EXPECT_FALSE(list.empty());
            for (size_t start = 0, end; (end = list.find('/', start)) != std::string::npos; start = end + 1)
                names.push_back(list.substr(start, end - start));
        }
    }

    CopyFileImpl mEngine;
};

TEST_F(CopyEngine, AWholeTreeIsCopiedWithModesOwnersTimesAndLinksAsLinks) {
    const std::string src = kRoot + "/src";
    ASSERT_TRUE(writeFile(src + "/a.txt", std::string(300000, 'a')));
    ASSERT_TRUE(writeFile(src + "/sub/deeper/b.txt", "b"));
    ASSERT_TRUE(writeFile(src + "/empty", ""));
    ASSERT_EQ(0, chown((src + "/a.txt").c_str(), 1010057, 1010057));
    ASSERT_EQ(0, chmod((src + "/a.txt").c_str(), 06640));
    ASSERT_EQ(0, chmod((src + "/sub").c_str(), 0710));
    const struct timespec old[2] = {{1000000, 0}, {1500000000, 0}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, (src + "/sub/deeper/b.txt").c_str(), old, 0));
    ASSERT_EQ(0, symlink((kOutside + "/secret").c_str(), (src + "/out").c_str()));
    ASSERT_EQ(0, mkfifo((src + "/pipe").c_str(), 0600));

    ASSERT_EQ(0, copy(src, kRoot + "/dst"));
    EXPECT_EQ(std::string(300000, 'a'), readFile(kRoot + "/dst/a.txt"));
    EXPECT_EQ(06640u, testfs::modeOf(kRoot + "/dst/a.txt"));
    EXPECT_EQ(1010057u, statOf(kRoot + "/dst/a.txt").st_uid);
    EXPECT_EQ(0710u, testfs::modeOf(kRoot + "/dst/sub"));
    EXPECT_EQ("b", readFile(kRoot + "/dst/sub/deeper/b.txt"));
    EXPECT_EQ(1500000000, statOf(kRoot + "/dst/sub/deeper/b.txt").st_mtime);
    EXPECT_TRUE(exists(kRoot + "/dst/empty"));
    // The link is copied as it stands and its target is left alone.
    EXPECT_TRUE(S_ISLNK(statOf(kRoot + "/dst/out").st_mode));
    char target[256] = {};
    ASSERT_GT(readlink((kRoot + "/dst/out").c_str(), target, sizeof(target) - 1), 0);
    EXPECT_EQ(kOutside + "/secret", target);
    EXPECT_FALSE(exists(kRoot + "/dst/pipe"));  // no special file crosses over
    expectOutsideUntouched();

    // A single file copies too.
    ASSERT_EQ(0, copy(src + "/sub/deeper/b.txt", kRoot + "/single"));
    EXPECT_EQ("b", readFile(kRoot + "/single"));
}

TEST_F(CopyEngine, RefusedCopiesChangeNothing) {
    const std::string src = kRoot + "/src";
    ASSERT_TRUE(writeFile(src + "/f", "data"));
    ASSERT_TRUE(writeFile(kRoot + "/taken", "keep"));
    ASSERT_EQ(0, symlink(kOutside.c_str(), (kRoot + "/escape").c_str()));

    EXPECT_EQ(-EEXIST, copy(src, kRoot + "/taken"));
    EXPECT_EQ("keep", readFile(kRoot + "/taken"));
    EXPECT_EQ(-EINVAL, copy(src, src + "/inside"));
    EXPECT_EQ(-EINVAL, copy(src, src));
    EXPECT_EQ(-EINVAL, copy(kRoot + "/src/../src", kRoot + "/dst"));
    EXPECT_EQ(-EINVAL, copy(src, kRoot + "/../outside/copy"));
    EXPECT_EQ(-EINVAL, copy(src, kRoot + "/./dst"));
    EXPECT_EQ(-EINVAL, copy("data/media/10/src", kRoot + "/dst"));
    EXPECT_EQ(-EINVAL, copy(src, "/"));
    // A link on the way is never followed, whichever side it is on.
    EXPECT_EQ(-ELOOP, copy(src, kRoot + "/escape/copy"));
    EXPECT_EQ(-ELOOP, copy(kRoot + "/escape/secret", kRoot + "/dst"));
    EXPECT_EQ(-ENAMETOOLONG, copy(src, kRoot + "/" + std::string(5000, 'n')));
    EXPECT_EQ(-ENAMETOOLONG, copy(src, kRoot + "/" + std::string(300, 'n')));
    EXPECT_EQ(-ENOENT, copy(kRoot + "/missing", kRoot + "/dst"));
    EXPECT_FALSE(exists(kRoot + "/dst"));
    expectOutsideUntouched();
}

TEST_F(CopyEngine, ACopyThatFailsHalfWayLeavesNoTarget) {
    std::string deep = kRoot + "/src";
    for (int i = 0; i < 30; ++i) deep += "/level" + std::to_string(i);
    ASSERT_TRUE(writeFile(deep + "/leaf", "x"));
    // Too few descriptors for the depth: the copy runs out part way down.
    struct rlimit old;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &old));
    int open = 0;
    for (int fd = 0; fd < 1024; ++fd) open += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
    struct rlimit tight = {static_cast<rlim_t>(open + 16), old.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &tight));
    int rc = copy(kRoot + "/src", kRoot + "/dst");
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &old));
    EXPECT_EQ(-EMFILE, rc);
    EXPECT_FALSE(exists(kRoot + "/dst"));
    EXPECT_FALSE(exists(kRoot + "/.pelk-copy.dst"));
    EXPECT_EQ("x", readFile(deep + "/leaf"));
}

TEST_F(CopyEngine, WhatACopyCutShortLeftIsReplacedByTheRetry) {
    ASSERT_TRUE(writeFile(kRoot + "/src/a", "whole a"));
    ASSERT_TRUE(writeFile(kRoot + "/src/b", "whole b"));
    // A copy killed with its process: half a tree under the staging name,
    // nothing under the target's.
    ASSERT_TRUE(writeFile(kRoot + "/.pelk-copy.dst/a", "who"));
    EXPECT_EQ(0, copy(kRoot + "/src", kRoot + "/dst"));
    EXPECT_EQ("whole a", readFile(kRoot + "/dst/a"));
    EXPECT_EQ("whole b", readFile(kRoot + "/dst/b"));
    EXPECT_FALSE(exists(kRoot + "/.pelk-copy.dst"));

    // A single file too, and a target name too long to prefix.
    const std::string longName(NAME_MAX, 'n');
    EXPECT_EQ(0, copy(kRoot + "/src/a", kRoot + "/" + longName));
    EXPECT_EQ("whole a", readFile(kRoot + "/" + longName));
    int calls = 0;
    EXPECT_EQ((std::vector<std::string>{"dst", longName, "src"}), scanAll(kRoot, &calls));
}

TEST_F(CopyEngine, ChunksCompleteTheFileWithTheLastRange) {
    std::string data(10000, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + 3);
    const std::string src = kRoot + "/big", dst = kRoot + "/big.copy";
    ASSERT_TRUE(writeFile(src, data));
    ASSERT_EQ(0, chmod(src.c_str(), 0640));
    ASSERT_EQ(0, chown(src.c_str(), 1010057, 1010057));

    EXPECT_EQ(0, chunk(src, dst, 4000, 4000, 10000));
    EXPECT_EQ(0, chunk(src, dst, 0, 4000, 10000));
    EXPECT_EQ(0600u, testfs::modeOf(dst));  // not the source's mode before it is whole
    EXPECT_EQ(1, chunk(src, dst, 8000, 2000, 10000));
    EXPECT_EQ(data, readFile(dst));
    EXPECT_EQ(0640u, testfs::modeOf(dst));
    EXPECT_EQ(1010057u, statOf(dst).st_uid);

    // An empty file is complete with its only, empty chunk.
    ASSERT_TRUE(writeFile(kRoot + "/none", ""));
    EXPECT_EQ(1, chunk(kRoot + "/none", kRoot + "/none.copy", 0, 0, 0));
    EXPECT_TRUE(exists(kRoot + "/none.copy"));
}

TEST_F(CopyEngine, BadChunksAreRefusedBeforeAnythingIsWritten) {
    const std::string src = kRoot + "/big", dst = kRoot + "/big.copy";
    ASSERT_TRUE(writeFile(src, std::string(1000, 's')));
    ASSERT_EQ(0, symlink((kOutside + "/secret").c_str(), (kRoot + "/link").c_str()));
    EXPECT_EQ(-EINVAL, chunk(src, dst, -1, 10, 1000));
    EXPECT_EQ(-EINVAL, chunk(src, dst, 0, -10, 1000));
    EXPECT_EQ(-EINVAL, chunk(src, dst, 0, 10, -1));
    EXPECT_EQ(-EINVAL, chunk(src, dst, 1001, 0, 1000));   // offset past the end
    EXPECT_EQ(-EINVAL, chunk(src, dst, 900, 200, 1000));  // range past the end
    EXPECT_EQ(-EINVAL, chunk(src, dst, 990, 20, 2000));   // more than the source holds
    EXPECT_EQ(-EINVAL, chunk(src, dst, 0x7fffffffffffffffLL, 0x7fffffffffffffffL, 0x7fffffffffffffffLL));
    EXPECT_FALSE(exists(dst));
    EXPECT_EQ(-EINVAL, chunk(src, src, 0, 10, 1000));
    EXPECT_EQ(-ELOOP, chunk(src, kRoot + "/link", 0, 10, 1000));
    EXPECT_EQ(-ELOOP, chunk(kRoot + "/link", dst, 0, 7, 7));
    EXPECT_EQ(-EINVAL, chunk(src, kRoot + "/../outside/copy", 0, 10, 1000));
    EXPECT_EQ(std::string(1000, 's'), readFile(src));
    expectOutsideUntouched();
}

TEST_F(CopyEngine, CancelRemovesOnlyAPartialFile) {
    const std::string src = kRoot + "/big", dst = kRoot + "/big.copy";
    ASSERT_TRUE(writeFile(src, std::string(1000, 's')));
    ASSERT_EQ(0, chunk(src, dst, 0, 500, 1000));
    EXPECT_EQ(0, mEngine.copyCancel(dst.c_str(), 1000));
    EXPECT_FALSE(exists(dst));
    EXPECT_EQ(0, mEngine.copyCancel(dst.c_str(), 1000));  // nothing left to cancel
    EXPECT_EQ(-EINVAL, mEngine.copyCancel(dst.c_str(), -1));
    ASSERT_TRUE(testfs::makeDirs(kRoot + "/dir"));
    EXPECT_EQ(-EINVAL, mEngine.copyCancel((kRoot + "/dir").c_str(), 0));
    ASSERT_EQ(0, symlink((kOutside + "/secret").c_str(), (kRoot + "/link").c_str()));
    EXPECT_EQ(-EINVAL, mEngine.copyCancel((kRoot + "/link").c_str(), 0));
    EXPECT_EQ(-EINVAL, mEngine.copyCancel((kRoot + "/../outside/secret").c_str(), 0));
    EXPECT_TRUE(exists(kRoot + "/dir"));
    EXPECT_TRUE(exists(kRoot + "/link"));
    expectOutsideUntouched();
}

TEST_F(CopyEngine, ScansListEveryEntryOnceOverSeveralCalls) {
    std::vector<std::string> expected;
    for (int i = 0; i < 60; ++i) {
        std::string name = std::string(200, static_cast<char>('a' + i % 26)) + std::to_string(i);
        expected.push_back(name);
        ASSERT_TRUE(writeFile(kRoot + "/scan/" + name, ""));
    }
    std::sort(expected.begin(), expected.end());
    int calls = 0;
    EXPECT_EQ(expected, scanAll(kRoot + "/scan", &calls));
    EXPECT_EQ(4, calls);  // 60 names of ~203 bytes: 20 to a text, and the closing call

    ASSERT_TRUE(testfs::makeDirs(kRoot + "/empty"));
    EXPECT_TRUE(scanAll(kRoot + "/empty", &calls).empty());

    char text[CopyFileImpl::SCAN_TEXT_SIZE];
    EXPECT_EQ(-EINVAL, mEngine.getDirNextFile((kRoot + "/scan").c_str(), text, -1));
    EXPECT_EQ(-ENOTDIR, mEngine.getDirNextFile((kRoot + "/scan/" + expected[0]).c_str(), text, 0));
    EXPECT_EQ(-ENOENT, mEngine.getDirNextFile((kRoot + "/missing").c_str(), text, 0));
    ASSERT_EQ(0, symlink(kOutside.c_str(), (kRoot + "/escape").c_str()));
    EXPECT_EQ(-ELOOP, mEngine.getDirNextFile((kRoot + "/escape").c_str(), text, 0));
    EXPECT_EQ(-EINVAL, mEngine.getDirNextFile((kRoot + "/../outside").c_str(), text, 0));
}

TEST_F(CopyEngine, PermissionMigrationCoversTheTreeAndStopsAtLinks) {
    const std::string tree = kRoot + "/migrated";
    ASSERT_TRUE(writeFile(tree + "/f", "x"));
    ASSERT_TRUE(writeFile(tree + "/sub/g", "y"));
    ASSERT_EQ(0, symlink((kOutside + "/secret").c_str(), (tree + "/out").c_str()));

    ASSERT_EQ(0, migrate(tree, 1010057, 1010057, 0750));
    for (const char* entry : {"", "/f", "/sub", "/sub/g"}) {
        EXPECT_EQ(1010057u, statOf(tree + entry).st_uid) << entry;
        EXPECT_EQ(1010057u, statOf(tree + entry).st_gid) << entry;
        EXPECT_EQ(0750u, testfs::modeOf(tree + entry)) << entry;
    }
    EXPECT_EQ(1010057u, statOf(tree + "/out").st_uid);  // the link itself
    expectOutsideUntouched();

    // -1 keeps the owner, as chown does.
    ASSERT_EQ(0, migrate(tree + "/f", -1, 1015, 0640));
    EXPECT_EQ(1010057u, statOf(tree + "/f").st_uid);
    EXPECT_EQ(1015u, statOf(tree + "/f").st_gid);

    EXPECT_EQ(-EINVAL, migrate(tree, 0, 0, 010000));
    EXPECT_EQ(-EINVAL, migrate(tree, 0, 0, -1));
    EXPECT_EQ(-EINVAL, migrate(tree, -2, 0, 0700));
    EXPECT_EQ(-EINVAL, migrate(tree + "/../../outside", 0, 0, 0777));
    EXPECT_EQ(-EINVAL, migrate("/", 0, 0, 0777));
    ASSERT_EQ(0, symlink(kOutside.c_str(), (kRoot + "/escape").c_str()));
    EXPECT_EQ(-ELOOP, migrate(kRoot + "/escape/secret", 0, 0, 0777));
    EXPECT_EQ(0750u, testfs::modeOf(tree + "/sub"));
    expectOutsideUntouched();
}

}  // namespace
