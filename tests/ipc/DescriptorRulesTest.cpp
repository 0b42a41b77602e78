#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/File.h>
#include <orvane/MemShared.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "support/Descriptors.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

// close() unlinks a TYPE_SHM block's name but keeps its descriptor open; a
// TYPE_FILE block's descriptor is closed and its file kept.
TEST(MemSharedDescriptors, KeepsAnUnlinkedShmDescriptorOpenAndClosesAFileOne) {
    std::string shm = "/orvane-fdrule-" + std::to_string(getpid());
    std::string file = test::tempPath("memshared-fd");
    auto before = test::openFds();
    {
        MemShared mem;
        ASSERT_TRUE(mem.open(shm, 64, IO_CREATE, MemShared::TYPE_SHM));
        mem.close();
    }
    auto kept = test::fdsOpenedSince(before);
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(test::fdTarget(kept[0]), "/dev/shm" + shm + " (deleted)");
    EXPECT_EQ(::shm_open(shm.c_str(), O_RDONLY | O_CLOEXEC, 0), -1);  // the name is gone
    EXPECT_EQ(errno, ENOENT);
    ::close(kept[0]);

    {
        MemShared mem;
        ASSERT_TRUE(mem.open(file, 64, IO_CREATE, MemShared::TYPE_FILE));
        mem.close();
    }
    EXPECT_TRUE(test::fdsOpenedSince(before).empty());
    EXPECT_TRUE(File::exists(file));
    ::unlink(file.c_str());
}

}  // namespace
}  // namespace orvane
