#include <orvane/Base64.h>

#include <tuple>

#include "support/Refusal.h"

namespace orvane {
namespace {

TEST(Base64, RefusesBadTextWithOneLineAndKeepsTheOutput) {
    // Text, options, and why it is refused.
    const std::vector<std::tuple<std::string, unsigned, std::string>> cases = {
        {"Zm9v!A==", Base64::Standard, "bad base64 character 0x21 at offset 4"},
        {"Zm9v+/==", Base64::UrlSafe, "bad base64 character 0x2b at offset 4"},
        {"Zm9v\nZm9v", Base64::Standard, "bad base64 character 0x0a at offset 4"},
        {"Zg==", Base64::NoPadding, "bad base64 character 0x3d at offset 2"},
        {"Z===", Base64::Standard, "bad base64 character 0x3d at offset 1"},
        {"Zm9", Base64::Standard, "bad base64 length: 3 characters"},
        {"Zh==", Base64::Standard, "unused bits set in the last base64 character at offset 1"},
        {std::string("Zm\0v", 4), Base64::Standard, "bad base64 character 0x00 at offset 2"}};
    for (const auto& c : cases) {
        std::string out = "kept";
        test::expectRefusal([&] { return Base64::decode(std::get<0>(c), &out, std::get<1>(c)); },
                            "<E>DATE [decode,L#] " + std::get<2>(c));
        EXPECT_EQ(out, "kept");
    }
}

}  // namespace
}  // namespace orvane
