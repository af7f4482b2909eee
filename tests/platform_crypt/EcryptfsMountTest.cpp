// The host eCryptfs mounts: real bind mounts that refuse a second key, and
// the device's mount tables that show them as the device's kernel does.
#include <crypt/crypt.h>
#include <crypt/ecryptfs_records.h>
#include <devprofile/DeviceProfile.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <persona/persona.h>
#include <sched.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "Sandbox.h"

namespace {

const char kLower[] = "/data/zanth/data/150";
const char kUpper[] = "/data/user/150";

// 33-byte key buffers as the manager hands them: 32 bytes and a zero.
struct Key {
    explicit Key(unsigned char fill) {
        for (int i = 0; i < 32; ++i) bytes[i] = static_cast<char>(fill + i);
        bytes[5] = 0;  // a zero inside the key is key material, not its end
        bytes[32] = 0;
    }
    char bytes[33];
};

bool makeDirs(const std::string& path) {
    for (size_t pos = path.find('/', 1);; pos = path.find('/', pos + 1)) {
        std::string prefix = path.substr(0, pos);
        if (mkdir(prefix.c_str(), 0771) != 0 && errno != EEXIST) return false;
        if (pos == std::string::npos) return true;
    }
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    return static_cast<bool>(out);
}

// A table as a device program reads it: through libc's fopen.
std::vector<std::string> tableLines(const char* path) {
    std::vector<std::string> lines;
    FILE* table = fopen(path, "re");
    if (!table) return lines;
    char line[4096];
    while (fgets(line, sizeof(line), table)) {
        std::string text(line);
        if (!text.empty() && text.back() == '\n') text.pop_back();
        lines.push_back(text);
    }
    fclose(table);
    return lines;
}

std::vector<std::string> words(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> out;
    for (std::string w; in >> w;) out.push_back(w);
    return out;
}

// The "mounts" line whose mount point is `point`, or "".
std::string mountsLine(const char* table, const std::string& point) {
    for (const std::string& line : tableLines(table)) {
        auto w = words(line);
        if (w.size() > 1 && w[1] == point) return line;
    }
    return "";
}

class EcryptfsMount : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(makeDirs(kLower));
        ASSERT_TRUE(makeDirs(kUpper));
    }
};

}  // namespace

TEST_F(EcryptfsMount, SameKeyMountsAgainWithEveryByteIntact) {
    Key key(1);
    ASSERT_EQ(mount_ecryptfs(key.bytes, kLower, kUpper, 1, 0, 0, 150, 'e'), 0);
    EXPECT_EQ(isMountedPath(kUpper), 1);
    std::string data(70000, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7);
    ASSERT_TRUE(writeFile(std::string(kUpper) + "/file", data));
    // Written through the mount, kept in the lower directory.
    EXPECT_EQ(readFile(std::string(kLower) + "/file"), data);

    ASSERT_EQ(umount2(kUpper, MNT_DETACH), 0);
    EXPECT_NE(access((std::string(kUpper) + "/file").c_str(), F_OK), 0);
    ASSERT_EQ(mount_ecryptfs(key.bytes, kLower, kUpper, 1, 0, 0, 150, 'e'), 0);
    EXPECT_EQ(readFile(std::string(kUpper) + "/file"), data);
}

TEST_F(EcryptfsMount, AnotherKeyIsRefusedAndNothingIsMounted) {
    Key key(1), other(2);
    ASSERT_EQ(mount_ecryptfs(key.bytes, kLower, kUpper, 1, 0, 0, 150, 'e'), 0);
    ASSERT_TRUE(writeFile(std::string(kUpper) + "/file", "kept"));
    ASSERT_EQ(umount2(kUpper, MNT_DETACH), 0);

    errno = 0;
    EXPECT_EQ(mount_ecryptfs(other.bytes, kLower, kUpper, 1, 0, 0, 150, 'e'), -1);
    EXPECT_EQ(errno, EKEYREJECTED);
    EXPECT_EQ(isMountedPath(kUpper), 0);
    EXPECT_EQ(mountsLine("/proc/mounts", kUpper), "");
    EXPECT_EQ(readFile(std::string(kLower) + "/file"), "kept");
    // Only the last byte differs: still another key.
    Key almost(1);
    almost.bytes[31] ^= 1;
    EXPECT_EQ(mount_ecryptfs(almost.bytes, kLower, kUpper, 1, 0, 0, 150, 'e'), -1);
    EXPECT_EQ(isMountedPath(kUpper), 0);
}

TEST_F(EcryptfsMount, TheCheckValueIsNotTheKey) {
    Key key(1);
    ASSERT_EQ(mount_ecryptfs(key.bytes, kLower, kUpper, 1, 0, 0, 150, 'e'), 0);
    char value[256];
    ssize_t n = getxattr(kLower, "user.pelk.ecryptfs_check", value, sizeof(value));
    ASSERT_EQ(n, 49);
    EXPECT_EQ(std::string(value, n).find(std::string(key.bytes, 32)), std::string::npos);
    // The lower directory itself holds no extra file.
    DIR* dir = opendir(kLower);
    ASSERT_NE(dir, nullptr);
    int entries = 0;
    while (dirent* e = readdir(dir)) entries += strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0;
    closedir(dir);
    EXPECT_EQ(entries, 0);
}

TEST_F(EcryptfsMount, ANewLowerDirectoryTakesANewKey) {
    Key key(1), other(2);
    ASSERT_EQ(mount_ecryptfs(key.bytes, kLower, kUpper, 1, 0, 0, 150, 'e'), 0);
    ASSERT_EQ(umount2(kUpper, MNT_DETACH), 0);
    ASSERT_EQ(rmdir(kLower), 0);
    ASSERT_EQ(mkdir(kLower, 0771), 0);
    EXPECT_EQ(mount_ecryptfs(other.bytes, kLower, kUpper, 1, 0, 0, 150, 'e'), 0);
}

TEST_F(EcryptfsMount, LowerAndUpperMayBeTheSameDirectory) {
    const char dir[] = "/data/zanth/sdcard/150";
    ASSERT_TRUE(makeDirs(dir));
    ASSERT_TRUE(writeFile(std::string(dir) + "/before", "b"));
    Key key(3);
    ASSERT_EQ(mount_ecryptfs(key.bytes, dir, dir, 2, 0, 1, 150, 'f'), 0);
    EXPECT_EQ(isMountedPath(dir), 1);
    EXPECT_EQ(readFile(std::string(dir) + "/before"), "b");
    std::string line = mountsLine("/proc/mounts", dir);
    EXPECT_EQ(line, std::string(dir) + " " + dir +
                        " ecryptfs rw,relatime,ecryptfs_cipher=aes,ecryptfs_key_bytes=32,"
                        "userid=150,partition_id=2 0 0");
    ASSERT_EQ(umount2(dir, MNT_DETACH), 0);
    Key other(4);
    EXPECT_EQ(mount_ecryptfs(other.bytes, dir, dir, 2, 0, 1, 150, 'f'), -1);
    EXPECT_EQ(isMountedPath(dir), 0);
}

TEST_F(EcryptfsMount, TheMountTableShowsAnEcryptfsMountWithItsPartitionId) {
    // The tables as the kernel writes them, before the mount.
    std::string rawBefore = readFile("/proc/self/mounts");
    Key key(1);
    ASSERT_EQ(mount_ecryptfs(key.bytes, kLower, kUpper, 100, 0, 0, 150, 't'), 0);

    auto w = words(mountsLine("/proc/mounts", kUpper));
    ASSERT_EQ(w.size(), 6u);
    EXPECT_EQ(w[0], kLower);
    EXPECT_EQ(w[2], "ecryptfs");
    EXPECT_NE(w[3].find(",userid=150,"), std::string::npos) << w[3];
    EXPECT_EQ(w[3].substr(w[3].size() - strlen(",partition_id=100")), ",partition_id=100");
    // The other table forms say the same.
    EXPECT_EQ(mountsLine("/proc/self/mounts", kUpper), mountsLine("/proc/mounts", kUpper));
    std::string own = "/proc/" + std::to_string(getpid()) + "/mounts";
    EXPECT_EQ(mountsLine(own.c_str(), kUpper), mountsLine("/proc/mounts", kUpper));
    bool inInfo = false;
    for (const std::string& line : tableLines("/proc/self/mountinfo")) {
        auto f = words(line);
        if (f.size() < 10 || f[4] != kUpper) continue;
        inInfo = true;
        EXPECT_EQ(f[3], kLower);  // the root within the lower directory's filesystem
        EXPECT_EQ(f[f.size() - 3], "ecryptfs");
        EXPECT_EQ(f[f.size() - 2], kLower);
        EXPECT_EQ(f.back(), "rw,ecryptfs_cipher=aes,ecryptfs_key_bytes=32,userid=150,partition_id=100");
    }
    EXPECT_TRUE(inInfo);

    // Every other line is the kernel's own.
    std::string shown;
    for (const std::string& line : tableLines("/proc/mounts"))
        if (words(line)[1] != kUpper) shown += line + "\n";
    EXPECT_EQ(shown, rawBefore);
    // The kernel's own table (read without libc's fopen) has the bind mount.
    EXPECT_NE(readFile("/proc/self/mounts").find(std::string(" ") + kUpper + " "), std::string::npos);

    ASSERT_EQ(umount2(kUpper, MNT_DETACH), 0);
    EXPECT_EQ(mountsLine("/proc/mounts", kUpper), "");
}

TEST_F(EcryptfsMount, AnotherProcessAndACopiedNamespaceSeeTheSameLine) {
    Key key(1);
    ASSERT_EQ(mount_ecryptfs(key.bytes, kLower, kUpper, 1, 0, 0, 150, 'e'), 0);
    std::string expected = mountsLine("/proc/mounts", kUpper);
    ASSERT_NE(expected, "");
    std::string parentTable = "/proc/" + std::to_string(getpid()) + "/mounts";
    pid_t child = fork();
    if (child == 0) {
        bool sameForParent = mountsLine(parentTable.c_str(), kUpper) == expected;
        bool ownNamespace = unshare(CLONE_NEWNS) == 0 && mountsLine("/proc/mounts", kUpper) == expected;
        _exit(sameForParent && ownNamespace ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(EcryptfsMount, AGoneProcessTableFailsAsTheKernelSays) {
    Key key(1);
    ASSERT_EQ(mount_ecryptfs(key.bytes, kLower, kUpper, 1, 0, 0, 150, 'e'), 0);
    errno = 0;
    EXPECT_EQ(fopen("/proc/999999/mounts", "re"), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(EcryptfsMount, PasswordFormUnwrapsTheUsersKeyFile) {
    ASSERT_EQ(fips_create_edk("/data/system/users/zanth_edk_150", "right"), 0);
    errno = 0;
    EXPECT_EQ(mount_ecryptfs_withpwd("wrong", kLower, kUpper, 1, 0, 0, 150, -1, 'e'), -1);
    EXPECT_EQ(errno, EKEYREJECTED);
    EXPECT_EQ(isMountedPath(kUpper), 0);
    ASSERT_EQ(mount_ecryptfs_withpwd("right", kLower, kUpper, 1, 0, 0, 150, -1, 'e'), 0);
    EXPECT_EQ(words(mountsLine("/proc/mounts", kUpper))[2], "ecryptfs");
    ASSERT_EQ(umount2(kUpper, MNT_DETACH), 0);

    // The password changed, the key stayed: the directory still opens.
    ASSERT_EQ(fips_change_password("right", "newer", "/data/system/users/zanth_edk_150"), 0);
    EXPECT_EQ(mount_ecryptfs_withpwd("right", kLower, kUpper, 1, 0, 0, 150, -1, 'e'), -1);
    ASSERT_EQ(mount_ecryptfs_withpwd("newer", kLower, kUpper, 1, 0, 0, 150, -1, 'e'), 0);
    ASSERT_EQ(umount2(kUpper, MNT_DETACH), 0);

    // Another user's key file holds another key: refused for this directory.
    ASSERT_EQ(fips_create_edk("/data/system/users/zanth_edk_151", "right"), 0);
    EXPECT_EQ(mount_ecryptfs_withpwd("right", kLower, kUpper, 1, 0, 0, 151, -1, 'e'), -1);
    EXPECT_EQ(isMountedPath(kUpper), 0);
    // And a user without a key file has nothing to unwrap.
    EXPECT_EQ(mount_ecryptfs_withpwd("right", kLower, kUpper, 1, 0, 0, 152, -1, 'e'), -1);
}

TEST_F(EcryptfsMount, PrivateModeUsesItsOwnKeyFile) {
    ASSERT_TRUE(makeDirs("/data/privatemode"));
    ASSERT_EQ(fips_create_edk("/data/system/users/zanth_edk_0", "pw"), 0);
    EXPECT_EQ(mount_ecryptfs_withpwd("pw", "/data/privatemode", "/data/privatemode", 3, 0, 0, 0, -1, 'g'), -1);
    ASSERT_EQ(fips_create_edk("/data/system/users/privatemode_edk_0", "pw"), 0);
    EXPECT_EQ(mount_ecryptfs_withpwd("pw", "/data/privatemode", "/data/privatemode", 3, 0, 0, 0, -1, 'g'), 0);
    EXPECT_NE(mountsLine("/proc/mounts", "/data/privatemode").find("partition_id=3 "), std::string::npos);
}

TEST_F(EcryptfsMount, BadInputMountsNothing) {
    Key key(1);
    EXPECT_EQ(mount_ecryptfs(key.bytes, "", "", 2, 0, 0, 150, 100), -1);
    EXPECT_EQ(mount_ecryptfs(key.bytes, "/data/zanth/data/missing", kUpper, 1, 0, 0, 150, 'e'), -1);
    EXPECT_EQ(mount_ecryptfs(key.bytes, kLower, "/data/user/missing", 1, 0, 0, 150, 'e'), -1);
    EXPECT_EQ(mount_ecryptfs(nullptr, kLower, kUpper, 1, 0, 0, 150, 'e'), -1);
    EXPECT_EQ(mount_ecryptfs(key.bytes, nullptr, kUpper, 1, 0, 0, 150, 'e'), -1);
    EXPECT_EQ(mount_ecryptfs_withpwd(nullptr, kLower, kUpper, 1, 0, 0, 150, -1, 'e'), -1);
    ASSERT_TRUE(writeFile("/data/zanth/data/plain", "x"));
    EXPECT_EQ(mount_ecryptfs(key.bytes, "/data/zanth/data/plain", kUpper, 1, 0, 0, 150, 'e'), -1);
    devprofile::failNext("mount_ecryptfs");
    EXPECT_EQ(mount_ecryptfs(key.bytes, kLower, kUpper, 1, 0, 0, 150, 'e'), -1);
    EXPECT_EQ(isMountedPath(kUpper), 0);
    // A failed call leaves no check value behind: any key may still be the first.
    EXPECT_EQ(getxattr(kLower, "user.pelk.ecryptfs_check", nullptr, 0), -1);
    EXPECT_EQ(mount_ecryptfs(key.bytes, kLower, kUpper, 1, 0, 0, 150, 'e'), 0);
}

TEST_F(EcryptfsMount, CallsAreRecordedWithoutTheirSecrets) {
    Key key(1);
    ASSERT_EQ(fips_create_edk("/data/system/users/zanth_edk_150", "secret-pw"), 0);
    EXPECT_EQ(install_ecryptfs_keyring(), 0);
    ASSERT_EQ(mount_ecryptfs(key.bytes, kLower, kUpper, 1, 0, 1, 150, 'e'), 0);
    ASSERT_EQ(umount2(kUpper, MNT_DETACH), 0);
    EXPECT_EQ(mount_ecryptfs_withpwd("bad-pw", kLower, kUpper, 1, 0, 0, 150, -1, 'e'), -1);

    auto calls = ecryptfs_calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].function, "install_ecryptfs_keyring");
    EXPECT_EQ(calls[1].function, "mount_ecryptfs");
    EXPECT_EQ(calls[1].lower, kLower);
    EXPECT_EQ(calls[1].upper, kUpper);
    EXPECT_EQ(calls[1].mode, 1);
    EXPECT_EQ(calls[1].flag, 1);
    EXPECT_EQ(calls[1].userId, 150);
    EXPECT_EQ(calls[1].type, 'e');
    EXPECT_EQ(calls[1].result, 0);
    EXPECT_EQ(calls[2].function, "mount_ecryptfs_withpwd");
    EXPECT_EQ(calls[2].keyIndex, -1);
    EXPECT_EQ(calls[2].result, -1);
    EXPECT_EQ(ecryptfs_keyring_installs(), 1);
    EXPECT_EQ(ecryptfs_mount_count(kUpper), 1);
    std::string records = readFile("/sim/log/ecryptfs");
    EXPECT_EQ(records.find("secret-pw"), std::string::npos);
    EXPECT_EQ(records.find("bad-pw"), std::string::npos);
    EXPECT_EQ(records.find(std::string(key.bytes, 5)), std::string::npos);

    devprofile::failNext("install_ecryptfs_keyring");
    EXPECT_EQ(install_ecryptfs_keyring(), -1);
    EXPECT_EQ(ecryptfs_keyring_installs(), 1);
    ecryptfs_clear();
    EXPECT_TRUE(ecryptfs_calls().empty());
}

TEST_F(EcryptfsMount, AResetUndoesTheMountAndItsTableLine) {
    Key key(1);
    ASSERT_EQ(mount_ecryptfs(key.bytes, kLower, kUpper, 1, 0, 0, 150, 'e'), 0);
    ASSERT_EQ(sim::resetDevice(), 0);
    EXPECT_EQ(isMountedPath(kUpper), 0);
    // Nothing registered any more: the kernel's own table is handed back.
    std::string viaLibc;
    for (const std::string& line : tableLines("/proc/mounts")) viaLibc += line + "\n";
    EXPECT_EQ(viaLibc, readFile("/proc/self/mounts"));
    EXPECT_EQ(viaLibc.find("ecryptfs"), std::string::npos);
}
