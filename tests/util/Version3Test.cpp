#include <orvane/Version3.h>

#include "support/Refusal.h"

namespace orvane {
namespace {

TEST(Version3, ParsesPrintsOrdersAndRefusesBadText) {
    // Each row is newer than the one before.
    const std::vector<std::string> ordered = {
        "0.0.0", "0.0.1", "0.1.0", "0.9.9", "1.0.0", "1.10.0", "10.2.3", "4294967295.0.4294967295"};
    for (size_t i = 0; i < ordered.size(); ++i) {
        Version3 a;
        EXPECT_TRUE(a.parse(ordered[i]) && a.toString() == ordered[i]) << ordered[i];
        for (size_t j = 0; j < ordered.size(); ++j) {
            Version3 b = Version3::fromString(ordered[j]);
            EXPECT_TRUE((a < b) == (i < j) && (a == b) == (i == j)) << i << " " << j;
        }
    }
    // Bad text or an overflow is refused with one line and the value is kept.
    // clang-format off
    const std::vector<std::string> bad = {"", "1.2", "1.2.3.4", "1..3", "01.2.3", "1.2.03",
        "+1.2.3", " 1.2.3", "1.2.3-rc1", "1.2.", "4294967296.0.0", "99999999999.0.0",
        std::string("1.2\0.3", 6)};
    // clang-format on
    Version3 v(7, 8, 9);
    for (const std::string& text : bad) {
        test::expectRefusal([&] { return v.parse(text); },
                            "<E>DATE [Version3::parse,L#] bad version \"" +
                                std::string(text.c_str()) + "\" (want major.minor.patch)");
    }
    EXPECT_EQ(v.toString(), "7.8.9");
    // An increment zeroes the lower parts and stops at the top value.
    EXPECT_TRUE(v.incrementPatch() && v.incrementMinor() && v.toString() == "7.9.0");
    EXPECT_TRUE(v.incrementPatch() && v.incrementMajor() && v.toString() == "8.0.0");
    Version3 top(1, 4294967295u, 3);
    EXPECT_TRUE(!top.incrementMinor() && top.toString() == "1.4294967295.3");
}

}  // namespace
}  // namespace orvane
