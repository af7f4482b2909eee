#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <cstring>
#include <string>

#include "log/PelkLog.h"

namespace {

// Rewrites text as the reader does, in a reader-sized buffer; checks the
// answered length against the text.
std::string rewrite(const std::string& text, const char* zone = "UTC0") {
    setenv("TZ", zone, 1);
    tzset();
    char line[PelkLog::DEV_LINE_BUFFER];
    snprintf(line, sizeof(line), "%s", text.c_str());
    int length = PelkLog::formatTime(line);
    EXPECT_EQ(length, static_cast<int>(strlen(line)));
    return line;
}

TEST(FormatTime, RewritesSecondsAsLocalTimeAndKeepsMilliseconds) {
    EXPECT_EQ(rewrite("1447600000.123|message text\n"), "11-15 15:06:40.123|message text\n");
    EXPECT_EQ(rewrite("1447600000.123|message text\n", "EST5"), "11-15 10:06:40.123|message text\n");
    EXPECT_EQ(rewrite("1447600000.123456|no newline"), "11-15 15:06:40.123|no newline\n");
    EXPECT_EQ(rewrite("1447600000.5|a|b\n"), "11-15 15:06:40.5|a|a|b\n");
}

TEST(FormatTime, ShortFractionsStillGiveThreeCharactersAfterTheFullStop) {
    EXPECT_EQ(rewrite("1447600000.5|msg\n"), "11-15 15:06:40.5|m|msg\n");
    EXPECT_EQ(rewrite("1447600000.12|msg"), "11-15 15:06:40.12||msg\n");
    EXPECT_EQ(rewrite("1447600000.|msg"), "11-15 15:06:40.|ms|msg\n");
    // The line ends first: nothing past it is read.
    EXPECT_EQ(rewrite("1447600000.5|"), "11-15 15:06:40.5||\n");
    EXPECT_EQ(rewrite("1447600000.5"), "11-15 15:06:40.5|1447600000.5\n");
}

TEST(FormatTime, MalformedLinesStayInsideTheirTextAndKeepIt) {
    EXPECT_EQ(rewrite("1447600000|x.y\n"), "11-15 15:06:40.|x.y\n");
    EXPECT_EQ(rewrite("1447600000.123 no bar\n"), "11-15 15:06:40.123|1447600000.123 no bar\n");
    EXPECT_EQ(rewrite("garbage\n"), "01-01 00:00:00.|garbage\n");
    EXPECT_EQ(rewrite(""), "01-01 00:00:00.|\n");
    // Seconds are cut to 15 digits.
    EXPECT_EQ(rewrite("0000000001447600000.1|x\n"), rewrite("000000000144760.1|x\n"));
    // The longest device line grows and still fits; a full buffer is cut.
    std::string message(PelkLog::DEV_LINE_MAX - 2, 'm');
    EXPECT_EQ(rewrite("1|" + message), "01-01 00:00:01.|" + message + "\n");
    EXPECT_EQ(rewrite(std::string(PelkLog::DEV_LINE_BUFFER - 1, 'z')).size(),
              static_cast<size_t>(PelkLog::DEV_LINE_BUFFER - 1));
}

}  // namespace
