// The private-mode store: its key file made on first use, the mount with its
// three views and media link as the device's mount table shows them, the
// password operations, and an unmount whose media link stays busy.
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include <crypt/crypt.h>
#include <crypt/ecryptfs_records.h>
#include <devprofile/DeviceProfile.h>
#include <persona/persona.h>
#include <sysutils/SocketClient.h>

#include "BusyKernel.h"
#include "base/UniqueHandle.h"
#include "command/CommandListenerPrivate.h"
#include "manager/PrivatePartitionManager.h"
#include "partition/Partition.h"
#include "support/Files.h"

namespace {

const char kKeyFile[] = "/data/system/users/privatemode_edk_0";
const char kStore[] = "/data/privatemode";
const char kMediaLink[] = "/mnt/media_rw/Private";
const char* const kViews[] = {"/mnt/runtime/default/Private", "/mnt/runtime/read/Private",
                              "/mnt/runtime/write/Private"};

int logged(const char* text, int priority) { return liblog_count(text, "pelkd", priority, LOG_ID_SYSTEM); }

// The line of a mount point in the mount table the device's programs read.
std::string tableLineOf(const std::string& point) {
    pelk::UniqueFile f(fopen("/proc/mounts", "re"));
    char line[4096];
    std::string found;
    while (f && fgets(line, sizeof(line), f.get())) {
        if (std::string(line).find(" " + point + " ") != std::string::npos) found = line;
    }
    return found;
}

class PrivateMode : public testing::Test {
protected:
    void SetUp() override {
        devprofile::set("time.scale", "0.001");
        liblog_clear();
    }
    // Takes the store down as the unmount command does, link first.
    void unmountAll() {
        Partition link(0, 'd', nullptr, false);
        snprintf(link.mMntPath, sizeof(link.mMntPath), "%s", kMediaLink);
        ASSERT_EQ(0, mManager->unmount(&link));
        rmdir(kMediaLink);
        ASSERT_EQ(0, mManager->unmount(&mStore));
    }

    PrivatePartitionManager* mManager = PrivatePartitionManager::Instance();
    Partition mStore{0, PARTITION_PRIVATE_MODE, nullptr, false};
};

TEST_F(PrivateMode, TheFirstMountMakesTheKeyFileAndShowsViewsAndMediaLink) {
    ASSERT_FALSE(testfs::exists(kKeyFile));
    ASSERT_EQ(0, mManager->ecryptfsMount(&mStore, "any password"));
    EXPECT_EQ(0, fips_verify_password(kKeyFile, "any password"));
    EXPECT_EQ(1, logged(" mounting...\n", ANDROID_LOG_ERROR));
    EXPECT_EQ(1, logged("ecryptfs mounting...", ANDROID_LOG_INFO));

    std::string store = tableLineOf(kStore);
    EXPECT_NE(std::string::npos, store.find(" ecryptfs ")) << store;
    EXPECT_NE(std::string::npos, store.find("partition_id=3")) << store;
    for (const char* view : kViews) EXPECT_EQ(1, isMountedPath(view)) << view;
    ASSERT_EQ(1, isMountedPath(kMediaLink));
    // The link shows the writable view: a file made through it is in the store.
    ASSERT_TRUE(testfs::writeFile(std::string(kMediaLink) + "/photo.jpg", "pixels"));
    EXPECT_EQ("pixels", testfs::readFile(std::string(kStore) + "/photo.jpg"));

    auto calls = ecryptfs_calls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ("mount_ecryptfs_withpwd", calls[0].function);
    EXPECT_EQ(3, calls[0].mode);
    EXPECT_EQ(-1, calls[0].keyIndex);
    EXPECT_EQ('g', calls[0].type);
    EXPECT_EQ(kStore, calls[0].lower);
    EXPECT_EQ(kStore, calls[0].upper);
}

TEST_F(PrivateMode, AMountedStoreAnswersWithoutAPasswordCheckAndAnUnmountedOneNeedsTheFirst) {
    ASSERT_EQ(0, mManager->ecryptfsMount(&mStore, "first"));
    ASSERT_TRUE(testfs::writeFile(std::string(kStore) + "/kept.txt", "kept"));
    liblog_clear();
    ecryptfs_clear();
    EXPECT_EQ(0, mManager->ecryptfsMount(&mStore, "second"));
    EXPECT_EQ(1, logged("partition is already mounted", ANDROID_LOG_DEBUG));
    EXPECT_EQ(0, logged("verify failed :: Error\n", ANDROID_LOG_ERROR));
    EXPECT_TRUE(ecryptfs_calls().empty());

    unmountAll();
    EXPECT_EQ(-1, mManager->ecryptfsMount(&mStore, "second"));
    EXPECT_EQ(1, logged("verify failed :: Error\n", ANDROID_LOG_ERROR));
    EXPECT_FALSE(mStore.isMounted());
    EXPECT_EQ(0, isMountedPath(kViews[2]));
    // The refused password did not replace the key file.
    EXPECT_EQ(0, fips_verify_password(kKeyFile, "first"));

    ASSERT_EQ(0, mManager->ecryptfsMount(&mStore, "first"));
    EXPECT_EQ("kept", testfs::readFile(std::string(kMediaLink) + "/kept.txt"));
}

TEST_F(PrivateMode, AFailedFirstUseShowsAsAFailedVerification) {
    devprofile::failNext("fips_create_edk");
    EXPECT_EQ(-1, mManager->ecryptfsMount(&mStore, "pw"));
    EXPECT_EQ(1, logged("create failed :: Error\n", ANDROID_LOG_ERROR));
    EXPECT_EQ(1, logged("verify failed :: Error\n", ANDROID_LOG_ERROR));
    EXPECT_FALSE(testfs::exists(kKeyFile));
    EXPECT_FALSE(mStore.isMounted());
}

TEST_F(PrivateMode, AMediaLinkThatCannotBePreparedFailsTheMount) {
    devprofile::failNext("fs_prepare_dir");
    EXPECT_EQ(-1, mManager->ecryptfsMount(&mStore, "pw"));
    EXPECT_EQ(1, logged("Failed to prepare media link", ANDROID_LOG_ERROR));
    EXPECT_EQ(0, isMountedPath(kMediaLink));
    // What was mounted stays for the caller to undo.
    EXPECT_TRUE(mStore.isMounted());
    EXPECT_EQ(0, mManager->unmount(&mStore));
    EXPECT_FALSE(mStore.isMounted());
    for (const char* view : kViews) EXPECT_EQ(0, isMountedPath(view)) << view;
}

TEST_F(PrivateMode, ANullOrPathlessAreaIsRefused) {
    EXPECT_EQ(-1, mManager->ecryptfsMount(nullptr, "pw"));
    EXPECT_EQ(1, logged("given partition obj is NULL", ANDROID_LOG_ERROR));
    Partition unknown(0, 'd', nullptr, false);
    EXPECT_EQ(-1, mManager->ecryptfsMount(&unknown, "pw"));
    EXPECT_FALSE(testfs::exists(kKeyFile));
    EXPECT_TRUE(ecryptfs_calls().empty());
}

TEST_F(PrivateMode, PasswordOperationsOnTheKeyFile) {
    EXPECT_EQ(-1, mManager->verifyPassword(0, "pw"));
    EXPECT_EQ(1, logged("Invalid\n", ANDROID_LOG_ERROR));
    ASSERT_EQ(0, mManager->createKey(0, "pw"));
    EXPECT_EQ(0, mManager->verifyPassword(0, "pw"));
    EXPECT_EQ(-1, mManager->verifyPassword(0, nullptr));

    EXPECT_NE(0, mManager->changePassword(0, "not it", "new"));
    EXPECT_EQ(1, logged("update:: Error\n", ANDROID_LOG_ERROR));
    EXPECT_EQ(0, mManager->changePassword(0, "pw", "new"));
    EXPECT_EQ(1, logged("update:: Success\n", ANDROID_LOG_ERROR));
    EXPECT_EQ(0, mManager->verifyPassword(0, "new"));
    EXPECT_EQ(-1, mManager->verifyPassword(0, "pw"));

    EXPECT_EQ(0, mManager->removePassword(0));
    EXPECT_EQ(1, logged("Delete:: Success\n", ANDROID_LOG_DEBUG));
    EXPECT_FALSE(testfs::exists(kKeyFile));
    // No file: the library is asked all the same and its failure is not told.
    EXPECT_EQ(0, mManager->removePassword(0));
    EXPECT_EQ(1, logged("Delete:: Error\n", ANDROID_LOG_DEBUG));

    devprofile::failNext("fips_create_edk");
    EXPECT_EQ(-1, mManager->createKey(0, "pw"));
    EXPECT_EQ(1, logged("create failed :: Error\n", ANDROID_LOG_ERROR));
}

TEST_F(PrivateMode, AnUnmountWhoseMediaLinkStaysBusyLeavesEverythingInPlace) {
    ASSERT_EQ(0, mManager->ecryptfsMount(&mStore, "pw"));
    int served = sim::runWithBusyKernel(
        [] {
            int ends[2];
            if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return 2;
            pelk::UniqueFd peer(ends[1]);
            SocketClient* client = new SocketClient(ends[0], true, false);
            CommandListenerPrivate::unmountPrivateModeCmd command;
            const char* argv[] = {"unmount_privatemode", "0", "/storage/Private"};
            int rc = command.runCommand(client, 3, const_cast<char**>(argv));
            client->decRef();
            std::string reply;
            char ch;
            while (read(peer.get(), &ch, 1) == 1 && ch != '\0') reply += ch;
            return rc == -1 && reply == "281 failed" ? 0 : 1;
        },
        [] { return true; });
    EXPECT_EQ(0, served);
    EXPECT_EQ(1, logged("Unmount ERROR [/mnt/media_rw/Private]", ANDROID_LOG_ERROR));
    EXPECT_EQ(1, logged("Giving up on unmount /mnt/media_rw/Private (Device or resource busy)", ANDROID_LOG_ERROR));
    // Nothing after the link was touched.
    EXPECT_TRUE(testfs::exists(kMediaLink));
    EXPECT_EQ(1, isMountedPath(kMediaLink));
    for (const char* view : kViews) EXPECT_EQ(1, isMountedPath(view)) << view;
    EXPECT_TRUE(mStore.isMounted());
}

}  // namespace
