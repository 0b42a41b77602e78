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

TEST(MD5Check, AgreesWithMd5sumOnFilesAndPiecesOfEverySize) {
    const std::vector<size_t> sizes = {0,   1,   55,    56,    57,    63,    64,     65,
                                       119, 120, 65535, 65536, 65537, 74113, 3 << 20};
    // One md5sum run over every file: its lines come in the order of the names.
    std::string stem = test::tempPath("md5");
    std::string names;
    for (size_t i = 0; i < sizes.size(); ++i) {
        names += " " + stem + "." + std::to_string(i);
        test::randomBytes(sizes[i], i, stem + "." + std::to_string(i));
    }
    std::vector<std::string> tool =
        StrUtil::splitString(test::toolOutput("md5sum" + names), "\n", true);
    ASSERT_EQ(tool.size(), sizes.size()) << "md5sum did not run";
    for (size_t i = 0; i < sizes.size(); ++i) {
        std::string path = stem + "." + std::to_string(i);
        std::string want = tool[i].substr(0, 32), bytes = test::randomBytes(sizes[i], i);
        EXPECT_EQ(MD5Check::hexOfFile(path), want) << sizes[i] << " bytes";
        unlink(path.c_str());
        // Split in two at every offset of the short ones, so that the block
        // carry-over is exercised at each position.
        MD5Check md5;
        for (size_t cut = 0; cut <= bytes.size();
             cut += bytes.size() < 200 ? 1 : bytes.size() / 3) {
            md5.update(bytes.substr(0, cut));
            md5.update(bytes.data() + cut, bytes.size() - cut);
            ASSERT_EQ(md5.finishHex(), want) << sizes[i] << " bytes cut at " << cut;
        }
    }
}

TEST(MD5Check, ChecksAFileAndRefusesABadFileOrDigestWithOneLine) {
    std::string path = test::tempPath("md5check");
    test::toolOutput("printf abc > " + path);
    EXPECT_TRUE(MD5Check::checkFile(path, "900150983CD24FB0D6963F7D28E17F72"));
    std::string missing = path + ".none";
    const std::vector<std::vector<std::string>> cases = {
        {path, "00000000000000000000000000000000",
         "[checkFile,L#] md5 mismatch for " + path +
             ": expected 00000000000000000000000000000000, got 900150983cd24fb0d6963f7d28e17f72"},
        {path, "900150983cd24fb0d6963f7d28e17f7g",
         "[fromHex,L#] not an md5 digest (32 hex digits): \"900150983cd24fb0d6963f7d28e17f7g\""},
        {missing, "900150983cd24fb0d6963f7d28e17f72",
         "[MD5Check::updateFile,L#] open " + missing + " error: No such file or directory"},
        {"/proc/self", "900150983cd24fb0d6963f7d28e17f72",
         "[MD5Check::updateFile,L#] read /proc/self error: Is a directory"}};
    for (const auto& c : cases) {
        test::expectRefusal([&] { return MD5Check::checkFile(c[0], c[1]); }, "<E>DATE " + c[2]);
    }
    unlink(path.c_str());
}

}  // namespace
}  // namespace orvane
