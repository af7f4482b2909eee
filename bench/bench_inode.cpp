// The inode search of the kernel event side against find -inum on the same
// tree in the same run: 200,000 entries under a simulated eCryptfs mount,
// and the inode of the last entry in the walk's order, so both walk the
// whole tree before they find it.
#include <dirent.h>
#include <fcntl.h>
#include <kernel/ecryptfs_table.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "Sandbox.h"
#include "WalkBench.h"
#include "base/DirEntry.h"
#include "fs_handler/InodePaths.h"

namespace {

const char kLower[] = "/data/bench_inode.lower";
const char kMount[] = "/data/bench_inode";
constexpr int kPartition = 7;
constexpr int kTop = 20, kSub = 50, kFiles = 198;  // 20 + 20*50 (+ a link each) + 198,000 files
constexpr int kRuns = 7;

// Empty files: the search reads names and inodes, never contents.
long makeEmptyTree(const std::string& root) {
    long entries = 0;
    for (int t = 0; t < kTop; ++t) {
        std::string top = root + "/d" + std::to_string(t);
        mkdir(top.c_str(), 0755);
        ++entries;
        for (int s = 0; s < kSub; ++s) {
            std::string dir = top + "/s" + std::to_string(s);
            mkdir(dir.c_str(), 0755);
            symlink("../..", (dir + "/up").c_str());
            entries += 2;
            for (int f = 0; f < kFiles; ++f) {
                int fd = open((dir + "/file" + std::to_string(f)).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
                if (fd >= 0) close(fd);
                ++entries;
            }
        }
    }
    return entries;
}

// The last entry a depth-first walk in directory order reaches.
std::string lastInWalkOrder(const std::string& dir) {
    std::string last;
    DIR* d = opendir(dir.c_str());
    if (!d) return last;
    while (dirent* e = readdir(d)) {
        if (pelk::isDotOrDotDot(e->d_name)) continue;
        last = dir + "/" + e->d_name;
        struct stat st;
        if (lstat(last.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
            std::string below = lastInWalkOrder(last);
            if (!below.empty()) last = below;
        }
    }
    closedir(d);
    return last;
}

}  // namespace

int main() {
    if (sim::enterSandbox() != 0) return 1;
    setenv("ANDROID_LOG_TAGS", "*:s", 1);
    mkdir(kLower, 0755);
    mkdir(kMount, 0755);
    if (mount("tmpfs", kLower, "tmpfs", 0, "size=256m,nr_inodes=400k") != 0 ||
        mount(kLower, kMount, nullptr, MS_BIND, nullptr) != 0 ||
        !hostkernel::registerEcryptfsMount(kMount, kLower, 10, kPartition)) {
        perror("simulated eCryptfs mount");
        return 1;
    }
    long entries = makeEmptyTree(kMount);
    std::string target = lastInWalkOrder(kMount);
    struct stat st;
    if (lstat(target.c_str(), &st) != 0) return 1;
    unsigned long inode = st.st_ino;
    std::string inum = std::to_string(inode);

    char found[4096] = {0};
    char type[] = "ecryptfs";
    bool engineFound = find_path_by_inode(kPartition, inode, type, found);
    std::string findOut;
    walkbench::runQuiet({"find", kMount, "-inum", inum, "-print", "-quit"}, &findOut);
    if (!findOut.empty() && findOut.back() == '\n') findOut.pop_back();
    printf("tree: %ld entries under %s (eCryptfs, partition_id=%d); last in walk order: %s\n", entries, kMount,
           kPartition, target.c_str());
    printf("found: engine %s, find %s, same: %s\n", engineFound ? found : "-", findOut.c_str(),
           engineFound && findOut == found ? "yes" : "no");

    walkbench::Sample sample;
    for (int run = 0; run < kRuns; ++run) {
        sample.engine.push_back(walkbench::seconds([&] { find_path_by_inode(kPartition, inode, type, found); }));
        sample.tool.push_back(walkbench::seconds([&] {
            walkbench::runQuiet({"find", kMount, "-inum", inum, "-print", "-quit"});
        }));
    }
    walkbench::report("inode at the end, 200k entries", "find -inum", sample);
    umount2(kMount, MNT_DETACH);
    umount2(kLower, MNT_DETACH);
    return 0;
}
