// "dlp_notify" lines reach the DLP library word for word.
#include <dlp/dlp.h>
#include <dlp/dlp_records.h>
#include <gtest/gtest.h>

#include "devprofile/DeviceProfile.h"

TEST(DlpCommands, WordsAreKeptExactlyAndAnArmedFailureRecordsNothing) {
    char w0[] = "dlp_notify";
    char w1[] = "a\tb";
    char w2[] = "line\nbreak \\";
    char* argv[] = {w0, w1, w2, nullptr};
    EXPECT_EQ(handleDLPCommands(3, argv), 0);
    devprofile::failNext("handleDLPCommands");
    EXPECT_NE(handleDLPCommands(1, argv), 0);
    EXPECT_EQ(handleDLPCommands(3, argv), 0);

    auto commands = dlp_commands();
    ASSERT_EQ(commands.size(), 2u);
    EXPECT_EQ(commands[0], (std::vector<std::string>{"dlp_notify", "a\tb", "line\nbreak \\"}));
    dlp_commands_clear();
    EXPECT_TRUE(dlp_commands().empty());
}
