#include <gtest/gtest.h>
#include <orvane/IODevice.h>
#include <orvane/MemShared.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "support/ChildProcess.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

// A shared-memory name and a temporary directory unique to this process,
// both removed afterwards; log lines cleared.
class MemSharedTest : public ::testing::Test {
  protected:
    void SetUp() override { test::LogCapture::get().clear(); }
    void TearDown() override {
        ::shm_unlink(shmName.c_str());
        std::filesystem::remove_all(dir);
    }
    static std::string line(const std::string& text) {
        return test::LogCapture::get().waitLine(text);
    }

    std::string shmName = "/orvane_shm_" + std::to_string(::getpid());
    std::string dir = test::tempPath("memshared");
};

TEST_F(MemSharedTest, AnotherProcessOpensTheObjectByNameAndSeesItsBytes) {
    MemShared mem;
    ASSERT_TRUE(mem.open(shmName, 4096, IO_CREATE, MemShared::TYPE_SHM));
    ASSERT_EQ(mem.putData("hello", 6), 6);
    EXPECT_TRUE(test::succeedsInChild([&] {
        MemShared theirs;  // size 0 maps the object as it is
        char buf[6] = {};
        return theirs.open(shmName, 0, IO_READ_WRITE, MemShared::TYPE_SHM) &&
               theirs.size() == 4096 && theirs.getData(buf, 6) == 6 && strcmp(buf, "hello") == 0 &&
               theirs.putData("reply", 6) == 6;
    }));
    char buf[6] = {};
    EXPECT_EQ(mem.getData(buf, 6), 6);
    EXPECT_STREQ(buf, "reply");
    mem.close();
    EXPECT_NE(::access(("/dev/shm" + shmName).c_str(), F_OK), 0);  // close unlinked it
}

TEST_F(MemSharedTest, FileBackedBlockCreatesItsDirectoryAndSurvivesClose) {
    std::string path = dir + "/a/b/block.bin";
    std::string payload(100, 'x');
    {
        MemShared mem;
        ASSERT_TRUE(mem.open(path, 64, IO_TRUNCATE, MemShared::TYPE_FILE));
        EXPECT_EQ(mem.putData(payload.data(), 100), 64);  // cut to the block's size
    }
    MemShared reader;
    ASSERT_TRUE(reader.open(path, 0, IO_READ, MemShared::TYPE_FILE));
    EXPECT_EQ(reader.putData("no", 2), -1);  // mapped read-only
    char buf[200];
    EXPECT_EQ(reader.getData(buf, 200), 64);
    EXPECT_EQ(std::string(buf, 64), payload.substr(0, 64));
}

TEST_F(MemSharedTest, RefusesBadRequestsAndStaysClosedWithoutLeaking) {
    int fds = test::openFdCount();
    {
        MemShared mem;
        char buf[4];
        EXPECT_FALSE(mem.open("", 16, IO_CREATE, MemShared::TYPE_SHM));
        EXPECT_FALSE(mem.open(shmName, 16, IO_WRITE, MemShared::TYPE_SHM));
        EXPECT_EQ(line("Unsupport"), "<E>DATE [MemShared::open,L#] Unsupport IO Mode: 1");
        EXPECT_FALSE(mem.open(shmName, 16, IO_READ, MemShared::TYPE_SHM));
        EXPECT_EQ(line("open shared"), "<E>DATE [MemShared::open,L#] open shared[" + shmName +
                                           "] error: No such file or directory");
        EXPECT_FALSE(mem.open(shmName, 0, IO_CREATE, MemShared::TYPE_SHM));  // empty: no map
        EXPECT_EQ(mem.getData(buf, 4), -1);

        ASSERT_TRUE(mem.open(shmName, 16, IO_CREATE, MemShared::TYPE_SHM));
        EXPECT_FALSE(mem.open(shmName, 16, IO_CREATE, MemShared::TYPE_SHM));
        EXPECT_EQ(line("already"), "<E>DATE [MemShared::open,L#] shared already exists!");
        EXPECT_EQ(mem.putData(nullptr, 3), -1);
    }
    EXPECT_EQ(test::openFdCount(), fds + 1);  // but for the unlinked block's descriptor
}

TEST(MemPool, HandsOutFirstFitRunsAndReleasesThemByOwner) {
    MemPool pool;
    void* area = malloc(400);  // the pool frees it
    ASSERT_TRUE(pool.init(4, 100, area));
    char* base = static_cast<char*>(area);
    EXPECT_EQ(pool.getMemory("a", 150), base);  // blocks 0 and 1
    EXPECT_EQ(pool.getMemory("b", 300), nullptr);
    EXPECT_TRUE(pool.putMemory("a"));
    EXPECT_EQ(pool.getMemory("b", 300), base);
    EXPECT_EQ(pool.getMemory("c", 100), base + 300);
    EXPECT_TRUE(pool.putMemory("b"));

    // Holes: a run needs consecutive free blocks; the first one that fits wins.
    EXPECT_EQ(pool.getMemory("x", 100), base);
    EXPECT_EQ(pool.getMemory("y", 1), base + 100);
    EXPECT_EQ(pool.getMemory("x", 100), base + 200);
    EXPECT_TRUE(pool.putMemory("x"));  // both of x's runs
    EXPECT_EQ(pool.getMemory("z", 200), nullptr);
    EXPECT_EQ(pool.getMemory("z", 100), base);
    EXPECT_EQ(pool.getMemory("w", 100), base + 200);

    // A second area: a run never spans the two.
    EXPECT_TRUE(pool.putMemory("c"));
    ASSERT_TRUE(pool.init(2, 100, nullptr));
    char* second = static_cast<char*>(pool.getMemory("v", 200));
    ASSERT_NE(second, nullptr);
    memset(second, 0xAB, 200);  // one piece of memory (checked by the sanitizers)
    EXPECT_EQ(pool.getMemory("u", 100), base + 300);
}

}  // namespace
}  // namespace orvane
