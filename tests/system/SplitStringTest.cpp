#include <gtest/gtest.h>
#include <orvane/StrUtil.h>

#include <string>
#include <vector>

namespace orvane {
namespace {

using Pieces = std::vector<std::string>;

TEST(StrUtil, SplitStringCutsAtEverySeparatorAndCanDropEmptyPieces) {
    EXPECT_EQ(StrUtil::splitString("cpu  10 0  7", " ", true), (Pieces{"cpu", "10", "0", "7"}));
    EXPECT_EQ(StrUtil::splitString("cpu  10 0  7", " ", false),
              (Pieces{"cpu", "", "10", "0", "", "7"}));
    EXPECT_EQ(StrUtil::splitString(" a ", " ", false), (Pieces{"", "a", ""}));
    EXPECT_EQ(StrUtil::splitString("a::b:::c", "::", false), (Pieces{"a", "b", ":c"}));
    EXPECT_EQ(StrUtil::splitString("abc", ",", true), (Pieces{"abc"}));
    EXPECT_EQ(StrUtil::splitString("abc", "", true), (Pieces{"abc"}));
    EXPECT_EQ(StrUtil::splitString("", ",", false), (Pieces{""}));
    EXPECT_EQ(StrUtil::splitString("", ",", true), Pieces{});
    EXPECT_EQ(StrUtil::splitString(",,,", ",", true), Pieces{});
}

}  // namespace
}  // namespace orvane
