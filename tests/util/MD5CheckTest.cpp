#include <gtest/gtest.h>
#include <orvane/MD5Check.h>
#include <orvane/StrUtil.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "ToolRun.h"
#include "support/Refusal.h"

namespace orvane {
namespace {

TEST(MD5Check, GivesTheRfc1321DigestsWholeAndInPieces) {
    struct Vector {
        std::string text, hex;
    };
    const std::vector<Vector> vectors = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"1234567890123456789012345678901234567890123456789012345678901234567890123456789"
         "0",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const Vector& v : vectors) {
        EXPECT_EQ(MD5Check::hexOf(v.text), v.hex) << v.text;
        // Every split point, so the block carry-over is exercised at each offset.
        MD5Check md5;
        for (size_t cut = 0; cut <= v.text.size(); ++cut) {
            md5.update(v.text.substr(0, cut));
            md5.update(v.text.data() + cut, v.text.size() - cut);
            ASSERT_EQ(md5.finishHex(), v.hex) << v.text << " cut at " << cut;
        }
        MD5Check::Digest parsed;
        ASSERT_TRUE(MD5Check::fromHex(v.hex, &parsed));
        EXPECT_EQ(parsed, MD5Check::digestOf(v.text));
    }
}

TEST(MD5Check, AgreesWithMd5sumOnFilesOfEverySize) {
    std::vector<size_t> sizes = {0,     1,     55,    56,     57,     63,      64,
                                 65,    119,   120,   127,    128,    129,     65535,
                                 65536, 65537, 65600, 131072, 131073, 3 << 20, (3 << 20) + 17};
    std::mt19937 pick(7);
    for (int i = 0; i < 10; ++i) sizes.push_back(pick() % 300000);
    // One md5sum run over every file: its lines come in the order of the names.
    std::string stem = test::tempPath("md5");
    std::string names;
    for (size_t i = 0; i < sizes.size(); ++i) {
        std::string path = stem + "." + std::to_string(i);
        test::writeFile(path, test::randomBytes(sizes[i], static_cast<unsigned>(i)));
        names += " " + path;
    }
    std::vector<std::string> tool =
        StrUtil::splitString(test::toolOutput("md5sum" + names), "\n", true);
    ASSERT_EQ(tool.size(), sizes.size()) << "md5sum did not run";
    for (size_t i = 0; i < sizes.size(); ++i) {
        std::string path = stem + "." + std::to_string(i);
        std::string want = tool[i].substr(0, 32);
        EXPECT_EQ(MD5Check::hexOfFile(path), want) << sizes[i] << " bytes";
        EXPECT_EQ(MD5Check::hexOf(test::randomBytes(sizes[i], static_cast<unsigned>(i))), want);
        EXPECT_TRUE(MD5Check::checkFile(path, StrUtil::toUpper(want)));
        unlink(path.c_str());
    }
}

TEST(MD5Check, RefusesABadFileOrDigestWithOneLine) {
    std::string path = test::tempPath("md5check");
    test::writeFile(path, "abc");
    std::string missing = path + ".none";
    struct Case {
        std::string file, expected, line;
    };
    const std::vector<Case> cases = {
        {path, "00000000000000000000000000000000",
         "<E>DATE [checkFile,L#] md5 mismatch for " + path +
             ": expected 00000000000000000000000000000000, got 900150983cd24fb0d6963f7d28e17f72"},
        {path, "900150983cd24fb0d6963f7d28e17f7g",
         "<E>DATE [fromHex,L#] not an md5 digest (32 hex digits): "
         "\"900150983cd24fb0d6963f7d28e17f7g\""},
        {missing, "900150983cd24fb0d6963f7d28e17f72",
         "<E>DATE [MD5Check::updateFile,L#] open " + missing + " error: No such file or directory"},
        {"/proc/self", "900150983cd24fb0d6963f7d28e17f72",
         "<E>DATE [MD5Check::updateFile,L#] read /proc/self error: Is a directory"},
    };
    for (const Case& c : cases) {
        test::expectRefusal([&] { return MD5Check::checkFile(c.file, c.expected); }, c.line);
    }
    EXPECT_EQ(MD5Check::hexOfFile(missing), "");
    unlink(path.c_str());
}

}  // namespace
}  // namespace orvane
