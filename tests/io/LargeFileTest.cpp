// Files past 2 GiB, where a 32-bit off_t or long runs out: a sparse file of
// 3 GiB takes no disk space.
#include <orvane/File.h>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

constexpr int64_t kBig = int64_t{3} << 30;

// What an operation with a long result gives for `value`: the value when
// long holds it, else -1.
long asLong(int64_t value) {
    return static_cast<int64_t>(static_cast<long>(value)) == value ? static_cast<long>(value) : -1;
}

using LargeFileTest = test::TempDirTest;

TEST_F(LargeFileTest, SeeksWritesAndReadsPastTwoGigabytes) {
    // Made by the truncate tool, so that it does not depend on how this program was built.
    std::string path = dir + "/big", size = std::to_string(kBig);
    if (test::toolOutput("truncate -s " + size + " '" + path + "' && stat -c %s '" + path + "'") !=
        size + "\n")
        GTEST_SKIP() << "no sparse file of 3 GiB in " << dir;
    EXPECT_TRUE(File::type(path) == FT_REGULAR &&
                File::getSize(path) == static_cast<uint32_t>(kBig) && File::modifyTime(path) > 0);

    const int64_t offsets[] = {0, (int64_t{1} << 31) - 1, (int64_t{1} << 31) + 5, kBig - 2};
    File file;
    ASSERT_TRUE(file.open(path, IO_READ_WRITE) && !file.seek(-1));
    EXPECT_EQ(line("negative"),
              "<E>DATE [File::seek,L#] file(" + path + ") seek to negative offset -1!");
    EXPECT_TRUE(file.size() == kBig && file.getSize() == asLong(kBig));
    for (int64_t offset : offsets) {
        ASSERT_TRUE(file.seek(offset)) << offset;
        EXPECT_EQ(file.getPos(), asLong(offset));
        EXPECT_EQ(file.writeData("ok", 2), 2) << offset;
        EXPECT_EQ(file.pos(), offset + 2);
    }
    EXPECT_TRUE(file.isEnd());
    ASSERT_TRUE(file.close());
    for (int64_t offset : offsets) {  // as the dd tool reads them
        EXPECT_EQ(test::toolOutput("dd if='" + path +
                                   "' bs=1 count=3 status=none skip=" + std::to_string(offset)),
                  offset + 2 < kBig ? std::string("ok\0", 3) : "ok")
            << offset;
    }
}

}  // namespace
}  // namespace orvane
