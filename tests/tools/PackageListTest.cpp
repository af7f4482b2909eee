#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "tools/PackageList.h"

namespace {

void writeList(const std::string& text) { std::ofstream("/data/system/packages.list") << text; }

}  // namespace

TEST(PackageList, MatchesTheWholeFirstFieldOnly) {
    writeList(
        "com.example.mail 10040 0 /data/user/0/com.example.mail default 3003\n"
        "alpha.beta.app 10057 0 /data/user/0/alpha.beta.app\n"
        "tabbed.app\t10060\n"
        "last.line.app");
    EXPECT_EQ(is_valid_package("alpha.beta.app"), 1);
    EXPECT_EQ(is_valid_package("com.example.mail"), 1);
    EXPECT_EQ(is_valid_package("tabbed.app"), 1);
    EXPECT_EQ(is_valid_package("last.line.app"), 1);
    EXPECT_EQ(is_valid_package("alpha.beta"), 0);
    EXPECT_EQ(is_valid_package("alpha.beta.app.extra"), 0);
    EXPECT_EQ(is_valid_package("Alpha.Beta.App"), 0);
    EXPECT_EQ(is_valid_package("10057"), 0);
    EXPECT_EQ(is_valid_package(nullptr), 0);
}

TEST(PackageList, MissingListKnowsNoPackage) {
    EXPECT_EQ(is_valid_package("alpha.beta.app"), 0);
    EXPECT_EQ(is_valid_package(""), 0);
}

TEST(PackageList, OverlongLinesAreReadInPieces) {
    // The tail of a line longer than 999 characters is read as a line of its own.
    writeList(std::string(999, 'x') + "tail.app 1\nnext.app 2\n");
    EXPECT_EQ(is_valid_package(std::string(999, 'x').c_str()), 1);
    EXPECT_EQ(is_valid_package("tail.app"), 1);
    EXPECT_EQ(is_valid_package("next.app"), 1);
}
