#include <gtest/gtest.h>
#include <orvane/IODevice.h>
#include <orvane/MemShared.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/LogCapture.h"

namespace orvane {
namespace {

// A shared-memory name and a temporary directory unique to this process,
// both removed afterwards; log lines cleared and descriptors counted.
class MemSharedTest : public ::testing::Test {
  protected:
    void SetUp() override {
        test::LogCapture::get().clear();
        shmName = "/orvane_shm_" + std::to_string(::getpid());
        dir = test::tempPath("memshared");
        fdsBefore = test::openFdCount();
    }
    void TearDown() override {
        ::shm_unlink(shmName.c_str());
        std::filesystem::remove_all(dir);
        EXPECT_EQ(test::openFdCount(), fdsBefore);
    }
    static std::string line(const std::string& text) {
        return test::LogCapture::get().waitLine(text);
    }

    std::string shmName;
    std::string dir;
    int fdsBefore = 0;
};

TEST_F(MemSharedTest, AnotherProcessOpensTheObjectByNameAndSeesItsBytes) {
    {
        MemShared mem;
        ASSERT_TRUE(mem.open(shmName, 4096, IO_CREATE, MemShared::TYPE_SHM));
        EXPECT_EQ(mem.size(), 4096);
        ASSERT_EQ(mem.putData("hello", 6), 6);

        pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            MemShared theirs;
            char buf[6] = {};
            // Size 0 maps the object as it is.
            bool ok = theirs.open(shmName, 0, IO_READ_WRITE, MemShared::TYPE_SHM) &&
                      theirs.size() == 4096 && theirs.getData(buf, 6) == 6 &&
                      strcmp(buf, "hello") == 0 && theirs.putData("reply", 6) == 6;
            ::_exit(ok ? 0 : 1);  // without close(), which would unlink the name
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0);
        char buf[6] = {};
        EXPECT_EQ(mem.getData(buf, 6), 6);
        EXPECT_STREQ(buf, "reply");
        EXPECT_EQ(static_cast<char*>(mem.data())[0], 'r');
        mem.close();
        EXPECT_EQ(mem.size(), 0);
        EXPECT_EQ(mem.getData(buf, 6), -1);
    }
    EXPECT_NE(::access(("/dev/shm" + shmName).c_str(), F_OK), 0);  // close unlinked it
}

TEST_F(MemSharedTest, FileBackedBlockCreatesItsDirectoryAndSurvivesClose) {
    std::string path = dir + "/a/b/block.bin";
    std::string payload(100, 'x');
    payload.replace(0, 5, "start");
    {
        MemShared mem;
        ASSERT_TRUE(mem.open(path, 64, IO_TRUNCATE, MemShared::TYPE_FILE));
        EXPECT_EQ(mem.putData(payload.data(), 100), 64);  // cut to the block's size
        char buf[200];
        EXPECT_EQ(mem.getData(buf, 200), 64);
        EXPECT_EQ(std::string(buf, 64), payload.substr(0, 64));
    }
    std::ifstream in(path, std::ios::binary);
    std::string stored((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(stored, payload.substr(0, 64));

    MemShared reader;
    ASSERT_TRUE(reader.open(path, 0, IO_READ, MemShared::TYPE_FILE));
    EXPECT_EQ(reader.size(), 64);
    EXPECT_EQ(reader.putData("no", 2), -1);  // mapped read-only
    char buf[5];
    EXPECT_EQ(reader.getData(buf, 5), 5);
    EXPECT_EQ(std::string(buf, 5), "start");
}

TEST_F(MemSharedTest, RefusesBadRequestsAndStaysClosed) {
    MemShared mem;
    EXPECT_FALSE(mem.open("", 16, IO_CREATE, MemShared::TYPE_SHM));
    EXPECT_EQ(line("shared name"), "<E>DATE [MemShared::open,L#] not specify shared name!");
    EXPECT_FALSE(mem.open(shmName, 16, IO_WRITE, MemShared::TYPE_SHM));
    EXPECT_EQ(line("Unsupport"), "<E>DATE [MemShared::open,L#] Unsupport IO Mode: 1");
    EXPECT_FALSE(mem.open(shmName, 16, IO_READ, MemShared::TYPE_SHM));
    EXPECT_EQ(line("open shared"), "<E>DATE [MemShared::open,L#] open shared[" + shmName +
                                       "] error: No such file or directory");
    EXPECT_FALSE(mem.open("/dev/null", 16, IO_READ_WRITE, MemShared::TYPE_FILE));
    EXPECT_EQ(line("set shared"),
              "<E>DATE [MemShared::open,L#] set shared[/dev/null] error: Invalid argument!");
    // A new, empty object cannot be mapped.
    EXPECT_FALSE(mem.open(shmName, 0, IO_CREATE, MemShared::TYPE_SHM));
    EXPECT_EQ(line("map shared"),
              "<E>DATE [MemShared::open,L#] map shared[" + shmName + "] error: Invalid argument!");
    std::filesystem::create_directories(dir);
    std::ofstream(dir + "/plain") << "x";
    EXPECT_FALSE(mem.open(dir + "/plain/sub/block", 16, IO_CREATE, MemShared::TYPE_FILE));
    EXPECT_EQ(line("shared dir"),
              "<E>DATE [MemShared::open,L#] create shared dir[" + dir + "/plain/sub] error!");

    char buf[4];
    EXPECT_EQ(mem.putData("abc", 3), -1);
    EXPECT_EQ(mem.getData(buf, 4), -1);
    EXPECT_EQ(mem.size(), 0);
    EXPECT_EQ(mem.data(), nullptr);
    mem.close();

    ASSERT_TRUE(mem.open(shmName, 16, IO_CREATE, MemShared::TYPE_SHM));
    EXPECT_FALSE(mem.open(shmName, 16, IO_CREATE, MemShared::TYPE_SHM));
    EXPECT_EQ(line("already"), "<E>DATE [MemShared::open,L#] shared already exists!");
    EXPECT_EQ(mem.putData(nullptr, 3), -1);
    EXPECT_EQ(mem.putData("abc", 0), -1);
    EXPECT_EQ(mem.getData(buf, -1), -1);
    EXPECT_EQ(mem.getData(nullptr, 4), -1);
}

TEST(MemPool, HandsOutFirstFitRunsAndReleasesThemByOwner) {
    MemPool pool;
    EXPECT_EQ(pool.getMemory("a", 10), nullptr);  // not initialised
    EXPECT_FALSE(pool.putMemory("a"));
    EXPECT_FALSE(pool.init(0, 100, nullptr));
    EXPECT_FALSE(pool.init(4, 0, nullptr));
    void* area = malloc(400);  // the pool frees it
    ASSERT_TRUE(pool.init(4, 100, area));
    char* base = static_cast<char*>(area);

    EXPECT_EQ(pool.getMemory("a", 150), base);  // blocks 0 and 1
    EXPECT_EQ(pool.getMemory("b", 300), nullptr);
    EXPECT_TRUE(pool.putMemory("a"));
    EXPECT_EQ(pool.getMemory("b", 300), base);
    EXPECT_EQ(pool.getMemory("c", 0), nullptr);
    EXPECT_EQ(pool.getMemory("", 10), nullptr);
    EXPECT_EQ(pool.getMemory("c", 100), base + 300);
    EXPECT_TRUE(pool.putMemory("b"));
    EXPECT_TRUE(pool.putMemory("nobody"));

    // Holes: a run needs consecutive free blocks; the first one that fits wins.
    EXPECT_EQ(pool.getMemory("x", 100), base);
    EXPECT_EQ(pool.getMemory("y", 1), base + 100);
    EXPECT_EQ(pool.getMemory("x", 100), base + 200);
    EXPECT_TRUE(pool.putMemory("x"));  // both of x's runs
    EXPECT_EQ(pool.getMemory("z", 200), nullptr);
    EXPECT_EQ(pool.getMemory("z", 100), base);
    EXPECT_EQ(pool.getMemory("w", 100), base + 200);
    pool.showMemory();
}

TEST(MemPool, NeverHandsOutARunAcrossTwoAreas) {
    MemPool pool;
    ASSERT_TRUE(pool.init(2, 64, nullptr));
    ASSERT_TRUE(pool.init(2, 64, nullptr));
    char* first = static_cast<char*>(pool.getMemory("a", 64));
    ASSERT_NE(first, nullptr);
    char* second = static_cast<char*>(pool.getMemory("b", 128));
    ASSERT_NE(second, nullptr);
    memset(second, 0xAB, 128);  // one piece of memory (checked by the sanitizers)
    EXPECT_NE(second, first + 64);
    EXPECT_EQ(static_cast<char*>(pool.getMemory("c", 64)), first + 64);
    EXPECT_EQ(first[0], 0);  // calloc'ed
}

TEST(MemPool, ThreadsGetDistinctBlocks) {
    MemPool pool;
    ASSERT_TRUE(pool.init(64, 32, nullptr));
    std::vector<std::vector<void*>> got(4);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&pool, &got, t] {
            std::string owner = "t" + std::to_string(t);
            for (int i = 0; i < 16; ++i) got[t].push_back(pool.getMemory(owner, 32));
        });
    }
    for (auto& th : threads) th.join();
    std::set<void*> distinct;
    for (auto& list : got) {
        for (void* p : list) {
            ASSERT_NE(p, nullptr);
            distinct.insert(p);
        }
    }
    EXPECT_EQ(distinct.size(), 64u);
    EXPECT_EQ(pool.getMemory("late", 1), nullptr);
    EXPECT_TRUE(pool.putMemory("t2"));
    EXPECT_NE(pool.getMemory("late", 32 * 16), nullptr);
}

}  // namespace
}  // namespace orvane
