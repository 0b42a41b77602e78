#include <orvane/Partition.h>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

using PartitionTest = test::TempDirTest;

bool canCreate(const std::string& path) { return std::ofstream(path).is_open(); }

TEST_F(PartitionTest, FindsTheMountHoldingAPathAsFindmntDoes) {
    MountInfo info;
    ASSERT_TRUE(Partition::mountOf(dir, &info));
    std::string findmnt = test::toolOutput("findmnt -n -o TARGET --target '" + dir + "'");
    if (findmnt.empty()) GTEST_SKIP() << "findmnt is not installed";
    EXPECT_EQ(info.mountPoint + "\n", findmnt);

    const std::string none = dir + "/none";
    EXPECT_FALSE(Partition::mountOf(none, &info) || Partition::availableBytes(none) != -1 ||
                 Partition::unmount(dir) || Partition::remount(dir, true) || Partition::sync(none));
    EXPECT_EQ(line("remount"),
              "<E>DATE [remount,L#] remount " + dir + " ro error: Invalid argument!");
}

// In a mount namespace of its own with a tmpfs on /tmp: mounts on a name
// that needs escapes, remounts keeping the mount's flags, measures. (The
// kernel tier compares the measures with df on a real disk.)
TEST(PartitionDeathTest, MountsRemountsAndMeasuresInAPrivateNamespace) {
    test::inPrivateTmp([] {
        std::string odd = "/tmp/a b\tc\\d";
        std::filesystem::create_directories(odd);
        ASSERT_TRUE(Partition::mount("none", odd, "tmpfs", MS_NOSUID | MS_NODEV, "size=64k"));
        MountInfo info;
        ASSERT_TRUE(Partition::mountOf(odd + "/./", &info));
        EXPECT_EQ(info.mountPoint + " " + info.fsType, odd + " tmpfs");
        EXPECT_EQ(Partition::totalBytes(odd), 64 << 10);

        // Read back after the remount: read-only, with the flags it was mounted with.
        EXPECT_TRUE(Partition::remount(odd, true) && Partition::mountOf(odd, &info));
        EXPECT_TRUE(Partition::isReadOnly(odd) && info.readOnly() && !canCreate(odd + "/f"));
        EXPECT_NE(info.options.find("nosuid,nodev"), std::string::npos);
        EXPECT_TRUE(Partition::remount(odd, false) && canCreate(odd + "/f"));
        EXPECT_TRUE(Partition::sync(odd + "/f") && Partition::unmount(odd));
        EXPECT_TRUE(Partition::mountOf(odd, &info) && info.mountPoint == "/tmp");
    });
}

}  // namespace
}  // namespace orvane
