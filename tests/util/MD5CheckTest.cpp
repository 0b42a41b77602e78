#include <orvane/Base64.h>
#include <orvane/MD5Check.h>
#include <orvane/StrUtil.h>

#include <fstream>
#include <random>

#include "support/Refusal.h"
#include "support/ToolRun.h"

namespace orvane {
namespace {

// `size` pseudo-random bytes, the same for the same seed.
std::string randomBytes(size_t size, unsigned seed) {
    std::mt19937 engine(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(engine() & 0xFF);
    return bytes;
}

// Sizes on both sides of MD5's 64-byte blocks and the file reader's 64 KiB,
// and of base64's 3-byte groups and 57-byte (76-character) lines.
TEST(Coreutils, MD5CheckAndBase64AgreeWithMd5sumBase64AndBasenc) {
    const std::vector<size_t> sizes = {0,    1,     2,     3,     55,    56,    57,  58,
                                       63,   64,    65,    113,   114,   119,   120, 1000,
                                       4099, 65535, 65536, 65537, 74113, 131073};
    const std::vector<std::string> tools = {"md5sum < $f", "base64 -w0 $f", "base64 $f",
                                            "basenc --base64url $f"};
    // One shell runs every tool on every file; '@' (in no output) ends each output.
    std::string stem = test::tempPath("tools"), script = "for f in";
    for (size_t i = 0; i < sizes.size(); ++i) {
        std::ofstream(stem + "." + std::to_string(i), std::ios::binary) << randomBytes(sizes[i], i);
        script += " " + stem + "." + std::to_string(i);
    }
    script += "; do";
    for (const auto& t : tools) script += " " + t + "; echo @;";
    std::vector<std::string> tool =
        StrUtil::splitString(test::toolOutput(script + " done"), "@\n", false);
    ASSERT_EQ(tool.size(), sizes.size() * tools.size() + 1) << "a tool did not run";
    for (size_t i = 0; i < sizes.size(); ++i) {
        SCOPED_TRACE(std::to_string(sizes[i]) + " bytes");
        std::string path = stem + "." + std::to_string(i), bytes = randomBytes(sizes[i], i);
        const std::string* out = &tool[i * tools.size()];
        EXPECT_EQ(MD5Check::hexOfFile(path), out[0].substr(0, 32));
        unlink(path.c_str());
        // Split in two at every offset of the short ones, so that the block
        // carry-over is exercised at each position.
        MD5Check md5;
        for (size_t cut = 0; cut <= bytes.size();
             cut += bytes.size() < 200 ? 1 : bytes.size() / 3) {
            md5.update(bytes.substr(0, cut));
            md5.update(bytes.data() + cut, bytes.size() - cut);
            ASSERT_EQ(md5.finishHex(), out[0].substr(0, 32)) << "cut at " << cut;
        }
        // The tools end the last line too; the library does not. Without
        // padding and MIME (CR LF) are derived from the tools' output.
        std::string plain = StrUtil::trimRight(out[1]), wrapped = StrUtil::trimRight(out[2]);
        const std::vector<std::pair<std::string, unsigned>> expected = {
            {plain, Base64::Standard},
            {wrapped, Base64::Wrap76},
            {StrUtil::trimRight(out[3]), Base64::UrlSafe | Base64::Wrap76},
            {StrUtil::replaceAll(plain, "=", ""), Base64::NoPadding},
            {StrUtil::replaceAll(wrapped, "\n", "\r\n"), Base64::Wrap76Crlf}};
        for (const auto& [want, options] : expected) {
            EXPECT_EQ(Base64::encode(bytes, options), want) << "options " << options;
            EXPECT_EQ(Base64::encodedLength(sizes[i], options), want.size()) << options;
            EXPECT_EQ(Base64::decode(want, options), bytes) << options;
        }
    }
}

TEST(MD5Check, ChecksAFileAndRefusesABadFileOrDigestWithOneLine) {
    std::string path = test::tempPath("md5check"), zeros(32, '0');
    test::toolOutput("printf abc > " + path);
    EXPECT_TRUE(MD5Check::checkFile(path, "900150983CD24FB0D6963F7D28E17F72"));
    test::expectRefusal([&] { return MD5Check::checkFile(path, zeros); },
                        "<E>DATE [checkFile,L#] md5 mismatch for " + path + ": expected " + zeros +
                            ", got 900150983cd24fb0d6963f7d28e17f72");
    EXPECT_FALSE(MD5Check::checkFile(path + ".none", zeros) ||
                 MD5Check::checkFile(path, "900150983cd24fb0d6963f7d28e17f7g"));
    unlink(path.c_str());
}

TEST(Base64, RefusesBadTextWithOneLineAndKeepsTheOutput) {
    // Text, options, and why it is refused.
    const std::vector<std::tuple<std::string, unsigned, std::string>> cases = {
        {"Zm9v!A==", Base64::Standard, "bad base64 character 0x21 at offset 4"},
        {"Zm9v+/==", Base64::UrlSafe, "bad base64 character 0x2b at offset 4"},
        {"Zg==", Base64::NoPadding, "bad base64 character 0x3d at offset 2"},
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
