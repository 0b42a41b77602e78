#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/Partition.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "io/TempDirFixture.h"
#include "support/PrivateMount.h"

namespace orvane {
namespace {

using PartitionTest = test::TempDirTest;

const MountInfo* findMount(const std::vector<MountInfo>& mounts, const std::string& point) {
    auto it = std::find_if(mounts.rbegin(), mounts.rend(),
                           [&](const MountInfo& m) { return m.mountPoint == point; });
    return it == mounts.rend() ? nullptr : &*it;
}

bool canCreate(const std::string& path) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd >= 0) ::close(fd);
    return fd >= 0;
}

TEST_F(PartitionTest, FindsTheMountHoldingAPathAsFindmntDoes) {
    MountInfo info;
    ASSERT_TRUE(Partition::mountOf(dir, &info));
    std::string findmnt = commandOutput("findmnt -n -o TARGET --target '" + dir + "'");
    if (findmnt.empty()) GTEST_SKIP() << "findmnt is not installed";
    EXPECT_EQ(info.mountPoint + "\n", findmnt);
    ASSERT_TRUE(Partition::mountOf("/proc/self/../self", &info));
    EXPECT_EQ(info.mountPoint, "/proc");
    EXPECT_EQ(info.fsType, "proc");
    std::vector<MountInfo> mounts;
    ASSERT_TRUE(Partition::list(&mounts));
    ASSERT_NE(findMount(mounts, "/"), nullptr);
    EXPECT_GT(Partition::totalBytes(dir), 0);

    // Each failure leaves exactly one line.
    const struct {
        std::function<bool()> fails;
        std::string method, text;
    } failures[] = {
        {[&] { return !Partition::mountOf(dir + "/none", &info); }, "FilePath::realPath",
         "realpath(" + dir + "/none) error: No such file or directory!"},
        {[] { return !Partition::list(nullptr); }, "list", "mounts is null!"},
        {[] { return Partition::totalBytes("") == -1; }, "totalBytes", "path is empty!"},
        {[&] { return Partition::availableBytes(dir + "/none") == -1; }, "availableBytes",
         "statvfs(" + dir + "/none) error: No such file or directory!"},
        {[] { return !Partition::remount("", true); }, "remount", "path is empty!"},
        {[&] { return !Partition::unmount(dir); }, "unmount",
         "umount " + dir + " error: Invalid argument!"},
        {[] { return !Partition::mount("none", "", "tmpfs"); }, "mount",
         "param error: target(), type(tmpfs)!"},
        {[&] { return !Partition::sync(dir + "/none"); }, "sync",
         "sync " + dir + "/none error: No such file or directory!"},
    };
    for (const auto& f : failures) {
        std::vector<std::string> lines =
            test::LogCapture::get().linesDuring([&] { EXPECT_TRUE(f.fails()) << f.text; });
        EXPECT_EQ(lines, std::vector<std::string>{"<E>DATE [" + f.method + ",L#] " + f.text});
    }
}

// Runs in a death-test child, in a mount namespace of its own with a 1 MiB
// tmpfs on `top`: mounts on a name that needs escapes, remounts, measures,
// then finds the privileged operations refused to an ordinary user.
void mountInPrivate(const std::string& top) {
    if (!test::hideDirectory(top.c_str(), 0, "size=1m")) _exit(2);
    auto& capture = test::LogCapture::get();
    EXPECT_EQ(Partition::totalBytes(top), 1 << 20);
    EXPECT_LE(Partition::availableBytes(top), Partition::freeBytes(top));

    std::string odd = top + "/a b\tc\\d";
    std::filesystem::create_directories(odd);
    ASSERT_TRUE(Partition::mount("none", odd, "tmpfs", MS_NOSUID | MS_NODEV, "size=64k"));
    std::filesystem::create_directories(odd + "/sub");
    std::vector<MountInfo> mounts;
    ASSERT_TRUE(Partition::list(&mounts) && findMount(mounts, odd) != nullptr);
    EXPECT_EQ(findMount(mounts, odd)->fsType + findMount(mounts, odd)->options.substr(0, 3),
              "tmpfsrw,");
    MountInfo info;
    ASSERT_TRUE(Partition::mountOf(odd + "/sub/..", &info));
    EXPECT_EQ(info.mountPoint, odd);
    EXPECT_EQ(Partition::totalBytes(odd + "/sub"), 64 << 10);

    EXPECT_TRUE(Partition::remount(odd, true));
    EXPECT_TRUE(Partition::isReadOnly(odd));
    EXPECT_FALSE(canCreate(odd + "/f"));
    ASSERT_TRUE(Partition::list(&mounts) && findMount(mounts, odd) != nullptr);
    EXPECT_TRUE(findMount(mounts, odd)->readOnly());
    EXPECT_NE(findMount(mounts, odd)->options.find("nosuid,nodev"), std::string::npos);
    EXPECT_TRUE(Partition::remount(odd, false));
    EXPECT_TRUE(canCreate(odd + "/f"));
    EXPECT_TRUE(Partition::sync(odd + "/f"));
    EXPECT_TRUE(Partition::sync(""));
    EXPECT_TRUE(Partition::unmount(odd));
    ASSERT_TRUE(Partition::mountOf(odd, &info));
    EXPECT_EQ(info.mountPoint, top);

    ASSERT_TRUE(Partition::mount("none", odd, "tmpfs"));
    ASSERT_TRUE(test::dropPrivileges());
    EXPECT_FALSE(Partition::remount(odd, true));
    EXPECT_EQ(capture.waitLine("remount"),
              "<E>DATE [remount,L#] remount " + odd + " ro error: Operation not permitted!");
    EXPECT_FALSE(Partition::unmount(odd));
    EXPECT_FALSE(Partition::mount("none", top + "/a", "tmpfs"));
    EXPECT_NE(capture.waitLine("mount none(tmpfs) on"), "");
    test::exitWithChecks();
}

TEST(PartitionDeathTest, MountsRemountsAndMeasuresInAPrivateNamespace) {
    std::string top = "/tmp/orvane_partition_test";
    std::filesystem::create_directories(top);
    if (!test::canHideDirectory(top.c_str())) {
        std::filesystem::remove(top);
        GTEST_SKIP() << "no private mount namespace here";
    }
    EXPECT_EXIT(mountInPrivate(top), ::testing::ExitedWithCode(0), "");
    std::filesystem::remove(top);
}

}  // namespace
}  // namespace orvane
