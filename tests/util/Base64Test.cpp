#include <gtest/gtest.h>
#include <orvane/Base64.h>
#include <orvane/StrUtil.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "ToolRun.h"
#include "support/Refusal.h"

namespace orvane {
namespace {

TEST(Base64, EncodesAndDecodesTheRfc4648Vectors) {
    const std::vector<std::pair<std::string, std::string>> vectors = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
    };
    for (const auto& v : vectors) {
        EXPECT_EQ(Base64::encode(v.first), v.second);
        std::string bare = v.second.substr(0, v.second.find('='));
        EXPECT_EQ(Base64::encode(v.first, Base64::NoPadding), bare);
        EXPECT_EQ(Base64::encodedLength(v.first.size()), v.second.size());
        std::string decoded = "junk";
        EXPECT_TRUE(Base64::decode(v.second, &decoded));
        EXPECT_EQ(decoded, v.first);
        EXPECT_EQ(Base64::decode(bare, Base64::NoPadding), v.first);
    }
    // The two alphabets differ in the last two characters only.
    std::string high("\xfb\xff\xbf", 3);
    EXPECT_EQ(Base64::encode(high), "+/+/");
    EXPECT_EQ(Base64::encode(high, Base64::UrlSafe), "-_-_");
    EXPECT_EQ(Base64::decode("-_-_", Base64::UrlSafe), high);
}

TEST(Base64, AgreesWithTheBase64AndBasencTools) {
    struct Form {
        std::string command;
        unsigned options;
        std::string lineEnd;
    };
    const std::vector<Form> forms = {
        {"base64 -w0", Base64::Standard, ""},
        {"base64", Base64::Wrap76, "\n"},
        {"basenc --base64url -w0", Base64::UrlSafe, ""},
        {"basenc --base64url", Base64::UrlSafe | Base64::Wrap76, "\n"},
    };
    std::vector<size_t> sizes = {1, 2, 3, 56, 57, 58, 113, 114, 1000, 4099};
    std::mt19937 pick(11);
    for (int i = 0; i < 8; ++i) sizes.push_back(1 + pick() % 5000);
    // One shell runs every tool on every file; '@' (in no base64 output)
    // ends each output.
    std::string stem = test::tempPath("b64");
    std::string script = "for f in";
    for (size_t i = 0; i < sizes.size(); ++i) {
        test::writeFile(stem + "." + std::to_string(i), test::randomBytes(sizes[i], i + 1));
        script += " " + stem + "." + std::to_string(i);
    }
    script += "; do";
    for (const Form& f : forms) script += " " + f.command + " $f; echo @;";
    std::vector<std::string> tool =
        StrUtil::splitString(test::toolOutput(script + " rm $f; done"), "@\n", false);
    ASSERT_EQ(tool.size(), sizes.size() * forms.size() + 1) << "base64 or basenc did not run";
    for (size_t i = 0; i < sizes.size(); ++i) {
        std::string bytes = test::randomBytes(sizes[i], i + 1);
        for (size_t k = 0; k < forms.size(); ++k) {
            const Form& f = forms[k];
            const std::string& want = tool[i * forms.size() + k];
            EXPECT_EQ(Base64::encode(bytes, f.options) + f.lineEnd, want) << f.command << sizes[i];
            EXPECT_EQ(Base64::encodedLength(sizes[i], f.options) + f.lineEnd.size(), want.size());
            EXPECT_EQ(Base64::decode(want, f.options | Base64::Wrap76), bytes);
        }
        // MIME: the tool's lines, ended by CR LF, none after the last.
        std::string mime = StrUtil::replaceAll(tool[i * forms.size() + 1], "\n", "\r\n");
        mime.resize(mime.size() - 2);
        EXPECT_EQ(Base64::encode(bytes, Base64::Wrap76Crlf), mime);
        EXPECT_EQ(Base64::decode(mime, Base64::Wrap76Crlf), bytes);
    }
}

TEST(Base64, RefusesBadTextWithOneLineAndAnEmptyResult) {
    struct Case {
        std::string text;
        unsigned options;
        std::string line;
    };
    const std::string at = "<E>DATE [decode,L#] ";
    const std::vector<Case> cases = {
        {"Zm9v!A==", Base64::Standard, at + "bad base64 character 0x21 at offset 4"},
        {"Zm9v-_==", Base64::Standard, at + "bad base64 character 0x2d at offset 4"},
        {"Zm9v+/==", Base64::UrlSafe, at + "bad base64 character 0x2b at offset 4"},
        {"Zm9v\nZm9v", Base64::Standard, at + "bad base64 character 0x0a at offset 4"},
        {"Zg==", Base64::NoPadding, at + "bad base64 character 0x3d at offset 2"},
        {"Zg=A", Base64::Standard, at + "bad base64 character 0x41 at offset 3"},
        {"Z===", Base64::Standard, at + "bad base64 character 0x3d at offset 1"},
        {"Zm9", Base64::Standard, at + "bad base64 length: 3 characters"},
        {"Zg", Base64::Standard, at + "bad base64 length: 2 characters"},
        {"Zm9vZ", Base64::NoPadding, at + "bad base64 length: 5 characters"},
        {"Zh==", Base64::Standard, at + "unused bits set in the last base64 character at offset 1"},
        {"Zm9=", Base64::Standard, at + "unused bits set in the last base64 character at offset 2"},
        {std::string("Zm\0v", 4), Base64::Standard, at + "bad base64 character 0x00 at offset 2"},
    };
    for (const Case& c : cases) {
        std::string out = "kept";
        test::expectRefusal([&] { return Base64::decode(c.text, &out, c.options); }, c.line);
        EXPECT_EQ(out, "kept");
        EXPECT_EQ(Base64::decode(c.text, c.options), "");
    }
    std::string empty = "kept";
    EXPECT_TRUE(Base64::decode("", &empty));
    EXPECT_EQ(empty, "");
}

}  // namespace
}  // namespace orvane
