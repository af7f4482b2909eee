// Key files damaged on disk (cut short, emptied, a byte flipped): the
// command that reads one answers a failure and logs why, the daemon serves
// on, and the file is left exactly as it was found, so that a repaired
// copy still opens the storage it belongs to.
#include <crypt/crypt.h>
#include <gtest/gtest.h>
#include <persona/persona.h>

#include <functional>
#include <string>
#include <vector>

#include "e2e/Daemon.h"
#include "partition/Partition.h"
#include "support/Files.h"
#include "support/KeyStoreFiles.h"
#include "support/ListenerLog.h"
#include "support/Mounts.h"

namespace {

using Lines = std::vector<std::string>;
using e2e::pelkctl;
using listenerlog::countStartingWith;
using mounts::mountedCount;

const int kUser = 10;
const char kEdekFile[] = "/data/system/users/10/zanth_edk_de_10";
const char kContainerKeyFile[] = "/data/system/users/zanth_edk_10";
const char kPrivateKeyFile[] = "/data/system/users/privatemode_edk_0";

struct Damage {
    const char* name;
    std::string bytes;
};

// The ways a file of these bytes is found damaged.
std::vector<Damage> damagedCopies(const std::string& good) {
    std::string flippedMiddle = good;
    flippedMiddle[good.size() / 2] ^= 0x5a;
    std::string flippedFirst = good;
    flippedFirst[0] ^= 0x01;
    std::string flippedLast = good;
    flippedLast[good.size() - 1] ^= 0x80;
    return {{"cut to half", good.substr(0, good.size() / 2)},
            {"cut to 3 bytes", good.substr(0, 3)},
            {"emptied", ""},
            {"middle byte flipped", flippedMiddle},
            {"first byte flipped", flippedFirst},
            {"last byte flipped", flippedLast}};
}

int countAny(const std::vector<std::string>& prefixes) {
    int n = 0;
    for (const std::string& prefix : prefixes) n += countStartingWith(prefix);
    return n;
}

class CorruptKeyFiles : public e2e::DaemonTest {
protected:
    void prepareDevice() override { e2e::prepareLegacyContainerDevice(); }
    Lines pelk(const std::string& lines) { return pelkctl({}, lines).lines; }
    Lines ppm(const std::string& lines) { return pelkctl({"--socket", "ppm"}, lines).lines; }

    // Damages path in every way in turn; for each, `lines` over the socket
    // must be refused with `replies`, log at least one line starting with
    // one of `logged`, and leave the damaged bytes as they were.
    void expectRefusedWhenDamaged(const std::string& path, const std::function<Lines()>& send, const Lines& replies,
                                  const std::vector<std::string>& logged) {
        const std::string good = testfs::readFile(path);
        ASSERT_GT(good.size(), 3u) << path;
        for (const Damage& damage : damagedCopies(good)) {
            SCOPED_TRACE(path + " " + damage.name);
            ASSERT_TRUE(testfs::writeFile(path, damage.bytes));
            int loggedBefore = countAny(logged);
            EXPECT_EQ(replies, send());
            EXPECT_GT(countAny(logged), loggedBefore);
            EXPECT_TRUE(testfs::readFile(path) == damage.bytes) << "the damaged file was changed";
            EXPECT_EQ(Lines{"200 1 success"}, ppm("unmount_privatemode 1 /x\n")) << "pelkd stopped serving";
        }
        ASSERT_TRUE(testfs::writeFile(path, good));
    }

    // Container 10 with its CE key in the key store, its areas made.
    void provisionContainer() {
        ASSERT_TRUE(testfs::makeDirs("/data/system/users/10"));
        keytest::provisionKey(kUser, 4, "ecryptfsKey10", keytest::randomBytes(32));
        ASSERT_EQ((Lines{"200 1 success", "200 2 success"}), pelk("create_partition 10 1\ncreate_partition 10 3\n"));
    }
};

TEST_F(CorruptKeyFiles, KeyStoreBlob) {
    provisionContainer();
    const std::string blob = keytest::keyFilePath(4, "ecryptfsKey10");
    expectRefusedWhenDamaged(blob, [this] { return pelk("premount\n"); }, {"281 1 failed"},
                             {"Pre-Mount ERROR : QuarnHelper failed"});
    EXPECT_EQ(0, mountedCount(kUser, Partition::LIST_CE_STORAGE));
    EXPECT_EQ(0, mountedCount(kUser, Partition::LIST_DE_STORAGE));
    EXPECT_FALSE(testfs::exists(kEdekFile)) << "a DE key was made from a damaged CE key";
    // Repaired, the same blob brings the container up.
    EXPECT_EQ(Lines{"200 1 success"}, pelk("premount\n"));
    EXPECT_EQ(4, mountedCount(kUser, Partition::LIST_CE_STORAGE));
    EXPECT_EQ(3, mountedCount(kUser, Partition::LIST_DE_STORAGE));
}

TEST_F(CorruptKeyFiles, EdekFile) {
    provisionContainer();
    ASSERT_EQ(Lines{"200 1 success"}, pelk("premount\n"));  // makes the EDEK file
    ASSERT_TRUE(testfs::exists(kEdekFile));
    const std::string kept = mounts::areaPath(kUser, PARTITION_DE_DATA) + "/kept";
    ASSERT_TRUE(testfs::writeFile(kept, "de data"));
    ASSERT_EQ((Lines{"200 1 success", "200 2 success"}), pelk("unmount 10 1\nunmount 10 3\n"));

    // CE comes up whatever becomes of DE; it is taken down after each try.
    expectRefusedWhenDamaged(
        kEdekFile, [this] { return Lines{pelk("premount\nunmount 10 1\n").at(0)}; }, {"281 1 failed"},
        {"Prepare DE ERROR : Failed to get fekek_de from edek!!", "Pre-Mount ERROR : Failed to mount DE storage!!"});
    EXPECT_EQ(0, mountedCount(kUser, Partition::LIST_DE_STORAGE));
    EXPECT_EQ(Lines{"200 1 success"}, pelk("premount\n"));
    EXPECT_EQ(3, mountedCount(kUser, Partition::LIST_DE_STORAGE));
    EXPECT_EQ("de data", testfs::readFile(kept));
}

TEST_F(CorruptKeyFiles, ContainerPasswordKeyFile) {
    ASSERT_EQ(0, fips_create_edk(kContainerKeyFile, "the-pass"));
    expectRefusedWhenDamaged(kContainerKeyFile, [this] { return pelk("verify_password 10 the-pass\n"); },
                             {"281 1 failed"}, {"verifyPassword ERROR"});
    expectRefusedWhenDamaged(kContainerKeyFile, [this] { return pelk("change_password 10 the-pass new-pass\n"); },
                             {"281 1 failed"}, {"changePassword ERROR"});
    EXPECT_EQ(Lines{"200 1 success"}, pelk("verify_password 10 the-pass\n"));
}

TEST_F(CorruptKeyFiles, PrivateModePasswordKeyFile) {
    ASSERT_EQ((Lines{"200 1 success", "200 2 success"}),
              ppm("mount_privatemode 0 /a /b the-pass\nunmount_privatemode 0 /a\n"));
    ASSERT_TRUE(testfs::exists(kPrivateKeyFile));
    expectRefusedWhenDamaged(kPrivateKeyFile, [this] { return ppm("mount_privatemode 0 /a /b the-pass\n"); },
                             {"281 1 failed"}, {"verify failed :: Error"});
    EXPECT_FALSE(isMountedPath("/data/privatemode"));
    expectRefusedWhenDamaged(kPrivateKeyFile,
                             [this] { return ppm("privatemode_change_password 0 the-pass new-pass\n"); },
                             {"281 1 failed"}, {"changePassword ERROR"});
    EXPECT_EQ(Lines{"200 1 success"}, ppm("mount_privatemode 0 /a /b the-pass\n"));
    EXPECT_TRUE(isMountedPath("/data/privatemode"));
}

}  // namespace
