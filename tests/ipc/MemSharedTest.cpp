#include <orvane/IODevice.h>
#include <orvane/MemShared.h>

#include <cstring>

#include "support/ChildProcess.h"
#include "support/Descriptors.h"
#include "support/Refusal.h"

namespace orvane {
namespace {

// A shared-memory name and a temporary directory unique to this process; the
// object is unlinked by MemShared's close, the directory removed afterwards.
class MemSharedTest : public ::testing::Test {
  protected:
    void TearDown() override { std::filesystem::remove_all(dir); }
    std::string shmName = "/orvane_shm_" + std::to_string(::getpid()),
                dir = test::tempPath("memshared");
};

// A TYPE_FILE block's descriptor is closed and its file kept; closing a
// TYPE_SHM object unlinks it and keeps its descriptor open.
TEST_F(MemSharedTest, SharesAFileBlockAndANamedObjectWithAnotherProcess) {
    const std::vector<int> fds = test::openFds();
    std::string path = dir + "/a/b/block.bin", payload(100, 'x');
    {
        MemShared mem;
        ASSERT_TRUE(mem.open(path, 64, IO_TRUNCATE, MemShared::TYPE_FILE));
        EXPECT_EQ(mem.putData(payload.data(), 100), 64);  // cut to the block's size
    }
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
    MemShared reader, mem;
    char buf[200] = {};
    ASSERT_TRUE(reader.open(path, 0, IO_READ, MemShared::TYPE_FILE));
    EXPECT_EQ(reader.putData("no", 2), -1);  // mapped read-only
    EXPECT_TRUE(reader.getData(buf, 200) == 64 && std::string(buf, 64) == payload.substr(0, 64));
    reader.close();

    test::expectRefusal([&] { return mem.open(shmName, 16, IO_WRITE, MemShared::TYPE_SHM); },
                        "<E>DATE [MemShared::open,L#] Unsupport IO Mode: 1");
    ASSERT_TRUE(mem.open(shmName, 4096, IO_CREATE, MemShared::TYPE_SHM));
    ASSERT_EQ(mem.putData("hello", 6), 6);
    EXPECT_TRUE(test::succeedsInChild([&] {
        MemShared theirs;  // size 0 maps the object as it is
        return theirs.open(shmName, 0, IO_READ_WRITE, MemShared::TYPE_SHM) &&
               theirs.size() == 4096 && theirs.getData(buf, 6) == 6 && strcmp(buf, "hello") == 0 &&
               theirs.putData("reply", 6) == 6;
    }));
    EXPECT_TRUE(mem.getData(buf, 6) == 6 && strcmp(buf, "reply") == 0);
    mem.close();
    EXPECT_NE(::access(("/dev/shm" + shmName).c_str(), F_OK), 0);  // close unlinked it
    EXPECT_EQ(test::fdsOpenedSince(fds).size(), 1u);               // but kept its descriptor open
}

TEST(MemPool, HandsOutFirstFitRunsWithinOneAreaAndReleasesThemByOwner) {
    MemPool pool;
    char* base = static_cast<char*>(malloc(400));  // the pool frees it
    ASSERT_TRUE(pool.init(4, 100, base));
    EXPECT_EQ(pool.getMemory("a", 150), base);  // blocks 0 and 1
    EXPECT_EQ(pool.getMemory("y", 1), base + 200);
    EXPECT_EQ(pool.getMemory("a", 100), base + 300);
    EXPECT_EQ(pool.getMemory("b", 200), nullptr);  // no two free blocks in a row
    EXPECT_TRUE(pool.putMemory("a"));              // both of a's runs
    EXPECT_EQ(pool.getMemory("b", 300), nullptr);  // 0, 1 and 3 are free, not in a row
    EXPECT_EQ(pool.getMemory("b", 200), base);
    // A second area: a run never spans the two (block 3 is free, 4 and 5 are new).
    ASSERT_TRUE(pool.init(2, 100, nullptr));
    char* second = static_cast<char*>(pool.getMemory("v", 200));
    ASSERT_NE(second, nullptr);
    memset(second, 0xAB, 200);  // one piece of memory (checked by the sanitizers)
    EXPECT_EQ(pool.getMemory("u", 100), base + 300);
}

}  // namespace
}  // namespace orvane
