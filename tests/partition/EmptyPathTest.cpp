// An area of unknown type has zero-length paths. Every directory, chamber and
// package operation given one acts as on a path that does not exist, with the
// same failure, and never on the root of the device that a naive join names.
#include <chamber/chamber_records.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <log/log.h>
#include <log/log_records.h>

#include <cerrno>
#include <set>
#include <string>

#include "config/EngineConfig.h"
#include "devprofile/DeviceProfile.h"
#include "partition/Partition.h"
#include "support/Files.h"

using namespace testfs;

namespace {

// What the root holds, and when it last changed: any entry made, removed or
// renamed there changes one or the other.
struct RootState {
    std::set<std::string> names;
    struct timespec changed {};

    static RootState now() {
        RootState state;
        if (DIR* root = opendir("/")) {
            while (dirent* entry = readdir(root)) state.names.insert(entry->d_name);
            closedir(root);
        }
        state.changed = statOf("/").st_mtim;
        return state;
    }
    bool operator==(const RootState& o) const {
        return names == o.names && changed.tv_sec == o.changed.tv_sec && changed.tv_nsec == o.changed.tv_nsec;
    }
};

const char kNoSuchFile[] = "No such file or directory";

class EmptyPath : public testing::Test {
protected:
    void SetUp() override {
        // A container user on legacy encryption: the relative-directory
        // maker acts only for those.
        devprofile::set("user.150", "zanth,legacy");
        ASSERT_EQ(unknown_.mSrcPath[0], '\0');
        ASSERT_EQ(unknown_.mMntPath[0], '\0');
        // A folder whose name the chamber removal would build from an
        // empty mount path: it must survive.
        mkdir("/Chamber.7", 0755);
        before_ = RootState::now();
    }
    void TearDown() override {
        EXPECT_TRUE(RootState::now() == before_) << "something changed at the root";
        EXPECT_TRUE(exists("/Chamber.7"));
        EXPECT_TRUE(chamber_directories().empty());
        rmdir("/Chamber.7");
    }

    Partition unknown_{150, 118, nullptr, false};
    RootState before_;
};

TEST_F(EmptyPath, CreateAndRemoveFailAsForAMissingPath) {
    EXPECT_EQ(unknown_.create(nullptr, 0), -1);
    EXPECT_EQ(liblog_count(std::string("mkdir failed for , ") + kNoSuchFile + "\n", "pelkd", ANDROID_LOG_ERROR), 1);

    EXPECT_EQ(unknown_.remove(), -1);
    EXPECT_EQ(liblog_count("remove directory  failed : 2(No such file or directory)", "pelkd", ANDROID_LOG_ERROR), 1);
}

TEST_F(EmptyPath, DirectoryMakersMakeNothing) {
    EXPECT_EQ(unknown_.makeDirectory(unknown_.mMntPath, 0771, 1000, 1000), -1);
    EXPECT_EQ(unknown_.makeRelativeDirectory("/Android/obb", 0771), -ENOENT);
    EXPECT_FALSE(exists("/Android"));
    EXPECT_EQ(liblog_count(std::string("mkdir failed for , ") + kNoSuchFile + "\n", "pelkd", ANDROID_LOG_ERROR), 2);
    EXPECT_EQ(unknown_.preparePartition(), 0);
    unknown_.arrangeStoragePermission();
}

TEST_F(EmptyPath, ClearingAndRemovingFindNothing) {
    EXPECT_EQ(unknown_.clearDirectory(unknown_.mSrcPath, 1, nullptr), -ENOENT);
    EXPECT_EQ(unknown_.removeDirectory(unknown_.mMntPath), -ENOENT);
    EXPECT_EQ(unknown_.removeFile(unknown_.mMntPath), 0);
    EXPECT_FALSE(unknown_.isDirectory(unknown_.mMntPath));
    EXPECT_EQ(unknown_.getDirectorySize(unknown_.mMntPath, 1), 0u);
}

TEST_F(EmptyPath, ChambersAreNeitherMadeNorRegisteredNorRemoved) {
    unknown_.createEngineChamber(7);
    unknown_.createEngineChamber(8);
    EXPECT_FALSE(exists("/Chamber.8"));

    engine withChamber{};
    withChamber.id = 9, withChamber.userid = 150, withChamber.flags = 2;
    engine_list list{};
    list.engines[0] = &withChamber;
    list.count = 1;
    unknown_.enableEngineChambers(&list);
    EXPECT_FALSE(exists("/Chamber.9"));

    unknown_.removeEngineChamber(7);
    EXPECT_EQ(
        liblog_count(std::string("Couldn't opendir : ") + kNoSuchFile + "\n", "pelkd", ANDROID_LOG_ERROR, LOG_ID_MAIN),
        1);
    EXPECT_FALSE(unknown_.makeZanthChamberDirectory());
    EXPECT_FALSE(unknown_.removeZanthChamberDirectory());
}

TEST_F(EmptyPath, PackageSyncMakesNoPackageFolderAtTheRoot) {
    Partition owner(0, 'e', nullptr, false);
    const std::string pkg = std::string(owner.mMntPath) + "/com.example.app";
    makeDirs(pkg);
    ASSERT_EQ(chown(pkg.c_str(), 10057, 10057), 0);

    EXPECT_EQ(unknown_.syncPkgDir(&owner), -1);
    EXPECT_FALSE(exists("/com.example.app"));
    EXPECT_TRUE(chamber_category_calls().empty());

    char out[Partition::PATH_SIZE] = "untouched";
    unknown_.getPkgPath("com.example.app", out, sizeof(out));
    EXPECT_STREQ(out, "");
}

TEST_F(EmptyPath, AnExplicitEmptyPathIsTreatedTheSame) {
    Partition given(150, "", "", false);
    EXPECT_EQ(given.create(nullptr, 0), -1);
    EXPECT_EQ(given.makeRelativeDirectory("/Android/obb", 0771), -ENOENT);
    given.createEngineChamber(8);
    given.removeEngineChamber(7);
    EXPECT_FALSE(exists("/Chamber.8"));
}

}  // namespace
