// After a session no password or key text is left anywhere in pelkd's memory:
// not in the freed copies of the command lines, not in the listeners' read
// buffers, not in the commands' fields. Every readable mapping of the daemon
// is read through /proc/<pid>/mem, as an attacker with a memory dump would.
#include <crypt/crypt.h>
#include <devprofile/DeviceProfile.h>
#include <fcntl.h>
#include <string.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Daemon.h"
#include "tools/Base64.h"

namespace {

using e2e::pelkctl;

const char* const kKeyFile = "/data/system/users/zanth_edk_10";

// Mappings larger than this are the sanitizer's shadow (terabytes of
// reserved, never written memory); the daemon's own data is far smaller.
const unsigned long long kLargestScanned = 1ull << 30;

struct Scan {
    unsigned long long bytes = 0;    // bytes read
    std::vector<std::string> found;  // "<text> at <address> in <mapping>"
};

// Reads every readable mapping of pid and reports where any of texts occurs.
Scan scanMemory(pid_t pid, const std::vector<std::string>& texts) {
    Scan scan;
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    pelk::UniqueFd mem(open(("/proc/" + std::to_string(pid) + "/mem").c_str(), O_RDONLY | O_CLOEXEC));
    if (!maps || !mem.ok()) return scan;
    size_t longest = 0;
    for (const std::string& t : texts) longest = std::max(longest, t.size());
    const size_t chunk = 1 << 20;
    std::vector<char> buf(chunk + longest);
    std::string line;
    while (std::getline(maps, line)) {
        std::istringstream in(line);
        std::string range, perms, offset, dev, inode, name;
        in >> range >> perms >> offset >> dev >> inode;
        std::getline(in, name);
        name = name.find_first_not_of(' ') == std::string::npos ? " [anonymous]"
                                                                : " " + name.substr(name.find_first_not_of(' '));
        unsigned long long start = 0, end = 0;
        if (sscanf(range.c_str(), "%llx-%llx", &start, &end) != 2 || perms[0] != 'r') continue;
        if (end - start > kLargestScanned || start >= (1ull << 63)) continue;
        size_t carried = 0;  // the tail of the previous chunk, for texts across its end
        for (unsigned long long at = start; at < end; at += chunk) {
            size_t want = static_cast<size_t>(std::min<unsigned long long>(chunk, end - at));
            ssize_t n = pread(mem.get(), buf.data() + carried, want, static_cast<off_t>(at));
            if (n <= 0) {
                carried = 0;
                continue;
            }
            scan.bytes += static_cast<unsigned long long>(n);
            size_t have = carried + static_cast<size_t>(n);
            for (const std::string& t : texts) {
                const char* from = buf.data();
                while (const void* hit =
                           memmem(from, static_cast<size_t>(buf.data() + have - from), t.data(), t.size())) {
                    const char* p = static_cast<const char*>(hit);
                    char where[64];
                    snprintf(where, sizeof(where), "%llx",
                             at - carried + static_cast<unsigned long long>(p - buf.data()));
                    scan.found.push_back(t + " at " + where + " in" + name);
                    from = p + 1;
                }
            }
            carried = std::min(longest - 1, have);
            memmove(buf.data(), buf.data() + have - carried, carried);
        }
    }
    return scan;
}

using e2e::keyText;

// Lines for pelkctl's standard input.
std::string joined(const std::vector<std::string>& lines) {
    std::string out;
    for (const std::string& line : lines) out += line + "\n";
    return out;
}

class SecretsInMemory : public e2e::DaemonTest {
protected:
    void prepareDevice() override {
        e2e::prepareLegacyContainerDevice();
        ASSERT_EQ(0, fips_create_edk(kKeyFile, kOldPassword));
    }

    static constexpr const char* kOldPassword = "Old-Pa55word-7f3a9c";
};

TEST_F(SecretsInMemory, NoPasswordOrKeyTextOutlivesTheSession) {
    const std::string newPassword = "New-Pa55word-2b81de";
    const std::string ppmOld = "Ppm-0ld-Pa55-91c4aa";
    const std::string ppmNew = "Ppm-N3w-Pa55-5e07b3";
    const std::string ppmKey = "Ppm-K3y-Text-c62f18";
    // The key itself (its first 32 bytes are used) and its text on the line.
    const std::string rawKey = "kEy-bytes-of-user-10:0123456789ab";
    const std::string key = keyText(rawKey);

    auto pelk = pelkctl(
        {}, joined({"create_partition 10 1", "create_partition 10 3",
                    "change_password 10 " + std::string(kOldPassword) + " " + newPassword,
                    "verify_password 10 " + newPassword, "mount 10 " + key + " 1 3", "mount 10 " + key + " 1 1"}));
    EXPECT_EQ((std::vector<std::string>{"200 1 success", "200 2 success", "200 3 success", "200 4 success",
                                        "200 5 success", "200 6 success"}),
              pelk.lines);
    auto ppm = pelkctl({"--socket", "ppm"}, joined({"mount_privatemode 0 /a /b " + ppmKey,
                                                    "privatemode_change_password 0 " + ppmOld + " " + ppmNew}));
    // The first mount makes the key file with its password; the change then
    // names an old password that is not it.
    EXPECT_EQ((std::vector<std::string>{"200 1 success", "281 2 failed"}), ppm.lines);
    // The last line each listener read carries a secret.
    auto last = pelkctl({}, joined({"mount 10 " + key + " 1 1"}));
    EXPECT_EQ(1u, last.lines.size());
    auto lastPpm = pelkctl({"--socket", "ppm"}, joined({"privatemode_change_password 0 " + ppmOld + " " + ppmNew}));
    EXPECT_EQ(std::vector<std::string>{"281 1 failed"}, lastPpm.lines);

    // The scan does see the daemon's memory: its own command words are there.
    Scan control = scanMemory(mDaemon, {"privatemode_change_password"});
    ASSERT_GT(control.bytes, 1u << 20);
    ASSERT_FALSE(control.found.empty()) << "the scan read nothing of pelkd";

    Scan scan = scanMemory(mDaemon, {kOldPassword, newPassword, ppmOld, ppmNew, ppmKey, key, rawKey.substr(0, 32)});
    std::string report;
    for (const std::string& f : scan.found) report += "\n  " + f;
    EXPECT_TRUE(scan.found.empty()) << scan.found.size() << " secrets left in pelkd's memory:" << report;
}

}  // namespace
