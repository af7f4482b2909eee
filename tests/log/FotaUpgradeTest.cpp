#include <gtest/gtest.h>

#include "devprofile/DeviceProfile.h"
#include "log/PelkLog.h"
#include "support/Files.h"

namespace {

using testfs::writeFile;

TEST(FotaUpgrade, ComparesTheMarkersBuildWithTheCurrentOne) {
    devprofile::set("prop.ro.build.PDA", "NEW");
    EXPECT_FALSE(PelkLog::isFotaUpgrade()) << "no marker: a first boot";
    writeFile("/data/log/pelk_error", "NEW\n");
    EXPECT_FALSE(PelkLog::isFotaUpgrade()) << "error marker, same build";
    writeFile("/data/log/pelk_success", "OLD\n");
    EXPECT_TRUE(PelkLog::isFotaUpgrade()) << "the success marker comes first";
    writeFile("/data/log/pelk_success", "NEW\n2015-11-15 15:06:40 NORMAL done\n");
    EXPECT_FALSE(PelkLog::isFotaUpgrade()) << "same build";
    writeFile("/data/log/pelk_success", "");
    EXPECT_TRUE(PelkLog::isFotaUpgrade()) << "empty marker";
    writeFile("/data/log/pelk_success", "NEW\n");
    devprofile::set("prop.ro.build.PDA", "");
    EXPECT_TRUE(PelkLog::isFotaUpgrade()) << "no build property";
}

}  // namespace
