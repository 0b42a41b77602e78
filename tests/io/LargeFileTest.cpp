// Files past 2 GiB, where a 32-bit off_t or long runs out: a sparse file of
// 3 GiB takes no disk space.
#include <orvane/File.h>

#include <climits>
#include <cstdint>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

constexpr int64_t kBig = int64_t{3} << 30;

class LargeFileTest : public test::TempDirTest {
  protected:
    void SetUp() override {
        test::TempDirTest::SetUp();
        path = dir + "/big";
        // Made by the truncate tool, so that it does not depend on how this program was built.
        std::string size = std::to_string(kBig);
        std::string made = test::toolOutput("truncate -s " + size + " '" + path +
                                            "' && stat -c %s '" + path + "'");
        if (made != size + "\n") GTEST_SKIP() << "no sparse file of 3 GiB in " << dir;
    }
    // The bytes at `offset` as the dd tool reads them.
    std::string bytesAt(int64_t offset, int count) const {
        return test::toolOutput("dd if='" + path + "' bs=1 skip=" + std::to_string(offset) +
                                " count=" + std::to_string(count) + " status=none");
    }
    // What an operation with a long result gives for `value`: the value when
    // long holds it, else -1.
    static long asLong(int64_t value) {
        return static_cast<int64_t>(static_cast<long>(value)) == value ? static_cast<long>(value)
                                                                       : -1;
    }

    std::string path;
};

TEST_F(LargeFileTest, PathOperationsSeeTheFile) {
    EXPECT_TRUE(File::exists(path));
    EXPECT_EQ(File::type(path), FT_REGULAR);
    EXPECT_EQ(File::getSize(path), static_cast<uint32_t>(kBig));
    EXPECT_GT(File::modifyTime(path), 0);
}

TEST_F(LargeFileTest, SeeksWritesAndReadsPastTwoGigabytes) {
    const int64_t offsets[] = {0, (int64_t{1} << 31) - 1, (int64_t{1} << 31) + 5, kBig - 2};
    File file;
    ASSERT_TRUE(file.open(path, IO_READ_WRITE));
    EXPECT_EQ(file.size(), kBig);
    EXPECT_EQ(file.getSize(), asLong(kBig));
    for (int64_t offset : offsets) {
        ASSERT_TRUE(file.seek(offset)) << offset;
        EXPECT_EQ(file.pos(), offset);
        EXPECT_EQ(file.getPos(), asLong(offset));
        EXPECT_EQ(file.writeData("ok", 2), 2) << offset;
        EXPECT_EQ(file.pos(), offset + 2);
    }
    EXPECT_TRUE(file.isEnd());
    EXPECT_EQ(file.size(), kBig);  // the last write ended at the end
    char buf[2] = {};
    ASSERT_TRUE(file.seek(offsets[2]));
    EXPECT_EQ(file.readData(buf, 2), 2);
    EXPECT_EQ(std::string(buf, 2), "ok");
    ASSERT_TRUE(file.close());
    for (int64_t offset : offsets) {
        EXPECT_EQ(bytesAt(offset, 3), offset + 2 < kBig ? std::string("ok\0", 3) : "ok") << offset;
    }
}

TEST_F(LargeFileTest, RefusesUnopenedFilesAndNegativeOffsetsWithOneLineEach) {
    File file;
    const struct {
        std::function<bool()> call;  // true: the operation succeeded
        std::string line;
    } refusals[] = {
        {[&] { return file.seek(0); }, "<E>DATE [File::seek,L#] file() not open!"},
        {[&] { return file.size() != -1; }, "<E>DATE [File::size,L#] file() not open!"},
        {[&] { return file.pos() != -1; }, "<E>DATE [File::pos,L#] file() not open!"},
        {[&] { return file.open(path, IO_READ) && file.seek(-1); },
         "<E>DATE [File::seek,L#] file(" + path + ") seek to negative offset -1!"},
    };
    for (const auto& r : refusals) {
        test::LogCapture::get().clear();
        EXPECT_FALSE(r.call()) << r.line;
        EXPECT_EQ(line("[File::"), r.line);
    }
    EXPECT_EQ(file.pos(), 0);
}

}  // namespace
}  // namespace orvane
