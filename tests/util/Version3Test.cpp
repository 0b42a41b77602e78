#include <gtest/gtest.h>
#include <orvane/Version3.h>

#include <string>
#include <vector>

#include "support/Refusal.h"

namespace orvane {
namespace {

TEST(Version3, ParsesPrintsAndOrdersByNumber) {
    Version3 v;
    for (std::string text : {"0.0.0", "1.2.3", "10.20.30", "4294967295.0.4294967295"}) {
        EXPECT_TRUE(v.parse(text));
        EXPECT_EQ(v.toString(), text);
    }
    EXPECT_EQ(v.majorVersion(), 4294967295u);
    EXPECT_EQ(v.patchVersion(), 4294967295u);
    // Each row is newer than the one before.
    const std::vector<std::string> ordered = {"0.0.0", "0.0.1", "0.1.0",  "0.9.9",
                                              "1.0.0", "1.2.9", "1.10.0", "2.0.0"};
    for (size_t i = 0; i < ordered.size(); ++i) {
        for (size_t j = 0; j < ordered.size(); ++j) {
            Version3 a = Version3::fromString(ordered[i]);
            Version3 b = Version3::fromString(ordered[j]);
            EXPECT_EQ(a < b, i < j);
            EXPECT_EQ(a <= b, i <= j);
            EXPECT_EQ(a > b, i > j);
            EXPECT_EQ(a >= b, i >= j);
            EXPECT_EQ(a == b, i == j);
            EXPECT_EQ(a != b, i != j);
        }
    }
}

TEST(Version3, RefusesBadTextWithOneLineAndKeepsItsValue) {
    // clang-format off
    const std::vector<std::string> bad = {"", "1", "1.2", "1.2.3.4", "1..3", "01.2.3", "1.2.03",
        "+1.2.3", "-1.2.3", " 1.2.3", "1.2.3 ", "1.2.3-rc1", "v1.2.3", "1.2.x", "1.2.",
        "4294967296.0.0", "99999999999.0.0", std::string("1.2\0.3", 6)};
    // clang-format on
    Version3 v(7, 8, 9);
    for (const std::string& text : bad) {
        test::expectRefusal([&] { return v.parse(text); },
                            "<E>DATE [Version3::parse,L#] bad version \"" +
                                std::string(text.c_str()) + "\" (want major.minor.patch)");
    }
    EXPECT_EQ(v, Version3(7, 8, 9));
}

TEST(Version3, IncrementsAPartAndZeroesTheLowerOnes) {
    Version3 v(1, 4, 2);
    EXPECT_TRUE(v.incrementPatch());
    EXPECT_EQ(v.toString(), "1.4.3");
    EXPECT_TRUE(v.incrementMinor());
    EXPECT_EQ(v.toString(), "1.5.0");
    EXPECT_TRUE(v.incrementPatch());
    EXPECT_TRUE(v.incrementMajor());
    EXPECT_EQ(v.toString(), "2.0.0");
    Version3 top(1, 4294967295u, 3);
    test::expectRefusal([&] { return top.incrementMinor(); },
                        "<E>DATE [Version3::incrementMinor,L#] cannot increment 1.4294967295.3 "
                        "past 4294967295");
    EXPECT_EQ(top, Version3(1, 4294967295u, 3));
}

}  // namespace
}  // namespace orvane
