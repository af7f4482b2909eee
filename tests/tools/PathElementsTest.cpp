#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/PathElements.h"

namespace {

// The components of `path`, or {"<null>"} when the call answers null.
std::vector<std::string> split(std::string path, char delimiter) {
    std::vector<char> buffer(path.begin(), path.end());
    buffer.push_back('\0');
    char** elements = get_path_elements(buffer.data(), delimiter);
    if (!elements) return {"<null>"};
    std::vector<std::string> parts;
    for (char** e = elements; *e; ++e) parts.push_back(*e);
    free_path_elements(elements);
    return parts;
}

using Parts = std::vector<std::string>;

}  // namespace

TEST(PathElements, SkipsEmptyComponents) {
    EXPECT_EQ(split("/data//user/0", '/'), (Parts{"data", "user", "0"}));
    EXPECT_EQ(split("data/user/0/", '/'), (Parts{"data", "user", "0"}));
    EXPECT_EQ(split("a/b/c", '/'), (Parts{"a", "b", "c"}));
    EXPECT_EQ(split("///", '/'), Parts{});
    EXPECT_EQ(split("", '/'), Parts{});
}

TEST(PathElements, WholeStringWithoutDelimiterAndOtherDelimiters) {
    EXPECT_EQ(split("single", '/'), Parts{"single"});
    EXPECT_EQ(split("/a/b:c::d", ':'), (Parts{"/a/b", "c", "d"}));
}

TEST(PathElements, NullPathAnswersNull) {
    EXPECT_EQ(get_path_elements(nullptr, '/'), nullptr);
    free_path_elements(nullptr);
}
