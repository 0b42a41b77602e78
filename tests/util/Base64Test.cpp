#include <gtest/gtest.h>
#include <orvane/Base64.h>
#include <orvane/StrUtil.h>

#include <string>
#include <vector>

#include "ToolRun.h"
#include "support/Refusal.h"

namespace orvane {
namespace {

TEST(Base64, AgreesWithTheBase64AndBasencTools) {
    const std::vector<std::pair<std::string, unsigned>> forms = {
        {"base64 -w0 $f", Base64::Standard},
        {"base64 $f", Base64::Wrap76},
        {"basenc --base64url $f", Base64::UrlSafe | Base64::Wrap76},
        {"base64 -w0 $f | tr -d =", Base64::NoPadding}};
    const std::vector<size_t> sizes = {1, 2, 3, 56, 57, 58, 113, 114, 1000, 4099, 3271};
    // One shell runs every tool on every file; '@' (in no base64 output) ends each output.
    std::string stem = test::tempPath("b64");
    std::string script = "for f in";
    for (size_t i = 0; i < sizes.size(); ++i) {
        test::randomBytes(sizes[i], i + 1, stem + "." + std::to_string(i));
        script += " " + stem + "." + std::to_string(i);
    }
    script += "; do";
    for (const auto& f : forms) script += " " + f.first + "; echo @;";
    std::vector<std::string> tool =
        StrUtil::splitString(test::toolOutput(script + " rm $f; done"), "@\n", false);
    ASSERT_EQ(tool.size(), sizes.size() * forms.size() + 1) << "base64 or basenc did not run";
    for (size_t i = 0; i < sizes.size(); ++i) {
        std::string bytes = test::randomBytes(sizes[i], i + 1);
        for (size_t k = 0; k < forms.size(); ++k) {
            // The tools end the last line too; the library does not.
            std::string want = tool[i * forms.size() + k];
            if (k == 1 || k == 2) want.pop_back();
            EXPECT_EQ(Base64::encode(bytes, forms[k].second), want) << forms[k].first << sizes[i];
            EXPECT_EQ(Base64::encodedLength(sizes[i], forms[k].second), want.size());
            EXPECT_EQ(Base64::decode(want, forms[k].second), bytes);
        }
        // MIME: the tool's lines, ended by CR LF.
        std::string mime = StrUtil::replaceAll(tool[i * forms.size() + 1], "\n", "\r\n");
        mime.resize(mime.size() - 2);
        EXPECT_EQ(Base64::encode(bytes, Base64::Wrap76Crlf), mime);
        EXPECT_EQ(Base64::decode(mime, Base64::Wrap76Crlf), bytes);
    }
}

TEST(Base64, RefusesBadTextWithOneLineAndKeepsTheOutput) {
    struct Case {
        std::string text;
        unsigned options;
        std::string why;
    };
    const std::vector<Case> cases = {
        {"Zm9v!A==", Base64::Standard, "bad base64 character 0x21 at offset 4"},
        {"Zm9v+/==", Base64::UrlSafe, "bad base64 character 0x2b at offset 4"},
        {"Zm9v\nZm9v", Base64::Standard, "bad base64 character 0x0a at offset 4"},
        {"Zg==", Base64::NoPadding, "bad base64 character 0x3d at offset 2"},
        {"Z===", Base64::Standard, "bad base64 character 0x3d at offset 1"},
        {"Zm9", Base64::Standard, "bad base64 length: 3 characters"},
        {"Zh==", Base64::Standard, "unused bits set in the last base64 character at offset 1"},
        {std::string("Zm\0v", 4), Base64::Standard, "bad base64 character 0x00 at offset 2"}};
    for (const Case& c : cases) {
        std::string out = "kept";
        test::expectRefusal([&] { return Base64::decode(c.text, &out, c.options); },
                            "<E>DATE [decode,L#] " + c.why);
        EXPECT_EQ(out, "kept");
    }
}

}  // namespace
}  // namespace orvane
