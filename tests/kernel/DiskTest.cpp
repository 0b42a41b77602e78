#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/FileWriteProtection.h>
#include <orvane/Partition.h>
#include <orvane/UniqueFd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <tuple>

#include "support/ToolRun.h"

// Partition and FileWriteProtection on a real block device: /dev/vda, a
// virtio disk holding a 16 MiB ext4 file system made on the host.
namespace orvane {
namespace {

const char* const kDisk = "/dev/vda";
const std::string kMountPoint = "/mnt/disk";

// Writes `text` to a new file; the errno of the failure, 0 on success.
int writeFile(const std::string& path, const std::string& text) {
    UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    return !fd || ::write(fd.get(), text.data(), text.size()) < 0 ? errno : 0;
}

class KernelDisk : public ::testing::Test {
  protected:
    void SetUp() override {
        mkdir(kMountPoint.c_str(), 0755);
        ASSERT_TRUE(Partition::mount(kDisk, kMountPoint, "ext4"));
    }
    void TearDown() override { Partition::unmount(kMountPoint, true); }
};

TEST_F(KernelDisk, DescribesTheMountedDeviceAsDfDoes) {
    MountInfo info;
    ASSERT_TRUE(Partition::mountOf(kMountPoint + "/lost+found/..", &info));
    struct stat device {};
    ASSERT_EQ(stat(kDisk, &device), 0);
    EXPECT_EQ(std::make_tuple(info.mountPoint, info.source, info.fsType, info.major, info.minor,
                              info.readOnly()),
              std::make_tuple(kMountPoint, std::string(kDisk), std::string("ext4"),
                              major(device.st_rdev), minor(device.st_rdev), false));

    // df reads the same statfs figures: 1K-blocks and available.
    EXPECT_EQ(std::to_string(Partition::totalBytes(kMountPoint) / 1024) + " " +
                  std::to_string(Partition::availableBytes(kMountPoint) / 1024) + "\n",
              test::toolOutput("df -k " + kMountPoint + " | tail -n 1 | awk '{print $2, $4}'"));
    EXPECT_GE(Partition::freeBytes(kMountPoint), Partition::availableBytes(kMountPoint));
}

TEST_F(KernelDisk, GuardOpensAReadOnlyMountForAnUpdateThatLastsOnTheDisk) {
    const std::string file = kMountPoint + "/config";
    ASSERT_EQ(writeFile(file, "version 1\n"), 0);
    ASSERT_TRUE(Partition::remount(kMountPoint, true));
    EXPECT_EQ(writeFile(file, "version 1\n"), EROFS);
    {
        FileWriteProtection writable(kMountPoint);
        ASSERT_TRUE(writable.isWritable());
        EXPECT_EQ(writeFile(file, "version 2\n"), 0);
    }
    EXPECT_EQ(writeFile(file, "version 3\n"), EROFS);

    // The update reached the device: it is there after a fresh mount.
    ASSERT_TRUE(Partition::unmount(kMountPoint));
    ASSERT_TRUE(Partition::mount(kDisk, kMountPoint, "ext4", MS_RDONLY));
    EXPECT_EQ(test::toolOutput("cat " + file), "version 2\n");
}

}  // namespace
}  // namespace orvane
