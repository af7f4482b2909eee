// pelkd killed outright (SIGKILL) in the middle of a mount, an unmount and
// a copy, at a different point each time, then started again: it learns
// the unlock state from the mount table, answers "is_mounted" by it, serves
// the next "mount" and "unmount", and the lower directories hold exactly
// the bytes they held before.
#include <gtest/gtest.h>
#include <log/log_records.h>
#include <persona/persona.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "e2e/Daemon.h"
#include "partition/Partition.h"
#include "support/Files.h"
#include "support/Mounts.h"

namespace {

using Lines = std::vector<std::string>;
using Tree = std::map<std::string, std::string>;  // file path -> content
using e2e::pelkctl;
using mounts::mountedCount;

const int kUser = 10;
const std::string kKey = e2e::keyText(std::string(32, 'k'));
const std::string kMountAll = "mount 10 " + kKey + " 1 3\nmount 10 " + kKey + " 1 1\n";
const std::string kUnmountAll = "unmount 10 1\nunmount 10 3\n";
// How far into an operation the daemon is killed: after this many of its
// log records since the command was sent.
const int kKillPoints[] = {1, 2, 3, 4, 6, 10};

// Calls visit(entry) for every entry under root.
template <typename Visit>
void forEachEntry(const std::string& root, Visit visit) {
    std::error_code ec;
    for (auto it = std::filesystem::recursive_directory_iterator(root, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec))
        visit(*it);
}

Tree snapshot(const std::string& root) {
    Tree tree;
    forEachEntry(root, [&](const std::filesystem::directory_entry& e) {
        tree[e.path().string()] = e.is_regular_file() ? testfs::readFile(e.path().string()) : "<dir>";
    });
    return tree;
}

size_t entryCount(const std::string& root) {
    size_t n = 0;
    forEachEntry(root, [&](const std::filesystem::directory_entry&) { ++n; });
    return n;
}

// Every lower directory of the container's areas.
template <size_t N>
void addLowerDirectories(const int32_t (&types)[N], Tree* all) {
    for (int32_t type : types) {
        Tree t = snapshot(Partition(kUser, type, nullptr, false).mSrcPath);
        all->insert(t.begin(), t.end());
    }
}

Tree lowerDirectories() {
    Tree all;
    addLowerDirectories(Partition::LIST_CE_STORAGE, &all);
    addLowerDirectories(Partition::LIST_DE_STORAGE, &all);
    return all;
}

int daemonRecords() { return e2e::daemonRecordCount(); }

class CrashRecovery : public e2e::DaemonTest {
protected:
    void prepareDevice() override { e2e::prepareLegacyContainerDevice(); }
    Lines pelk(const std::string& lines) { return pelkctl({}, lines).lines; }

    // Sends lines in the background and kills the daemon once it has logged
    // `records` more lines (or finished) and `ms` more have passed; answers
    // how far it got, as the mount table shows it, and starts it again.
    std::string killDuring(const std::string& lines, int records, int ms = 0) {
        int start = daemonRecords();
        Lines replies;
        std::atomic<bool> answered{false};
        std::thread client([&] {
            replies = pelk(lines);
            answered = true;
        });
        while (daemonRecords() < start + records && !answered) {}
        if (ms > 0) usleep(ms * 1000);
        kill(mDaemon, SIGKILL);
        int status = 0;
        waitpid(mDaemon, &status, 0);
        client.join();
        std::string state = "CE " + std::to_string(mountedCount(kUser, Partition::LIST_CE_STORAGE)) + "/4, DE " +
                            std::to_string(mountedCount(kUser, Partition::LIST_DE_STORAGE)) + "/3, " +
                            std::to_string(replies.size()) + " replies";
        mDaemon = e2e::startDaemon();
        EXPECT_GT(mDaemon, 0) << "pelkd did not come back";
        return state;
    }

    // The answer a restarted daemon owes: with CE data mounted the user is
    // unlocked and the CE areas decide, otherwise the DE areas do.
    std::string expectedIsMounted() {
        bool unlocked = isMountedPath(mounts::areaPath(kUser, PARTITION_CE_DATA).c_str());
        bool up = unlocked ? mountedCount(kUser, Partition::LIST_CE_STORAGE) == 4
                           : mountedCount(kUser, Partition::LIST_DE_STORAGE) == 3;
        return up ? "200 1 success" : "281 1 failed";
    }

    void expectServesMountAndUnmount() {
        EXPECT_EQ((Lines{"200 1 success", "200 2 success", "200 3 success"}), pelk(kMountAll + "is_mounted 10\n"));
        EXPECT_EQ(4, mountedCount(kUser, Partition::LIST_CE_STORAGE));
        EXPECT_EQ(3, mountedCount(kUser, Partition::LIST_DE_STORAGE));
        EXPECT_EQ((Lines{"200 1 success", "200 2 success", "281 3 failed"}), pelk(kUnmountAll + "is_mounted 10\n"));
        EXPECT_EQ(0, mountedCount(kUser, Partition::LIST_CE_STORAGE));
        EXPECT_EQ(0, mountedCount(kUser, Partition::LIST_DE_STORAGE));
    }
};

TEST_F(CrashRecovery, KilledDuringMountAndUnmount) {
    ASSERT_EQ((Lines{"200 1 success", "200 2 success"}), pelk("create_partition 10 1\ncreate_partition 10 3\n"));
    ASSERT_EQ((Lines{"200 1 success", "200 2 success"}), pelk(kMountAll));
    for (int32_t type : Partition::LIST_CE_STORAGE)
        ASSERT_TRUE(testfs::writeFile(mounts::areaPath(kUser, type) + "/kept", std::string(65536, 'a' + type % 26)));
    for (int32_t type : Partition::LIST_DE_STORAGE)
        ASSERT_TRUE(testfs::writeFile(mounts::areaPath(kUser, type) + "/kept", std::string(4096, 'a' + type % 26)));
    ASSERT_EQ((Lines{"200 1 success", "200 2 success"}), pelk(kUnmountAll));
    const Tree lower = lowerDirectories();
    ASSERT_GE(lower.size(), 7u);

    for (int point : kKillPoints) {
        SCOPED_TRACE("killed after " + std::to_string(point) + " records");
        std::string state = killDuring(kMountAll, point);
        printf("crash: mount killed after %d records: %s\n", point, state.c_str());
        EXPECT_EQ(Lines{expectedIsMounted()}, pelk("is_mounted 10\n"));
        expectServesMountAndUnmount();

        ASSERT_EQ((Lines{"200 1 success", "200 2 success"}), pelk(kMountAll));
        state = killDuring(kUnmountAll, point);
        printf("crash: unmount killed after %d records: %s\n", point, state.c_str());
        EXPECT_EQ(Lines{expectedIsMounted()}, pelk("is_mounted 10\n"));
        expectServesMountAndUnmount();
        EXPECT_TRUE(lower == lowerDirectories()) << "the lower directories changed";
    }
}

TEST_F(CrashRecovery, KilledDuringACopy) {
    const std::string area = "/data/media/10";
    for (int i = 0; i < 8; ++i) {
        std::string content(8 << 20, static_cast<char>('0' + i));
        content[i * 1000] = '!';
        ASSERT_TRUE(testfs::writeFile(area + "/src/file" + std::to_string(i), content));
    }
    const Tree source = snapshot(area + "/src");
    const std::string copy = "copy whole " + area + "/src 10 " + area + "/dst 11 0 0 0 0\n";
    // Killed the given milliseconds after the command was logged.
    for (int point : {0, 2, 10, 30, 60, 120}) {
        SCOPED_TRACE("killed after " + std::to_string(point) + " ms");
        std::string state = killDuring(copy, 1, point);
        size_t copied = entryCount(area + "/dst");
        size_t all = entryCount(area);
        printf("crash: copy killed %d ms in: %s, %zu entries at the target, %zu in the area\n", point, state.c_str(),
               copied, all);
        EXPECT_TRUE(source == snapshot(area + "/src")) << "the source changed";
        // The target is whole or absent: never a half-written file under
        // the name asked for.
        EXPECT_TRUE(copied == 0 || copied == source.size()) << copied << " entries";
        std::filesystem::remove_all(area + "/dst");
        EXPECT_EQ(Lines{"200 1 success"}, pelk(copy));
        Tree again = snapshot(area + "/dst");
        EXPECT_EQ(source.size(), again.size());
        for (const auto& [path, content] : source) {
            std::string target = area + "/dst" + path.substr((area + "/src").size());
            EXPECT_TRUE(again[target] == content) << target;
        }
        std::filesystem::remove_all(area + "/dst");
    }
}

}  // namespace
