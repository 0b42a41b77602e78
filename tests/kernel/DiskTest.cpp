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
#include <fstream>
#include <sstream>

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
    if (!fd) return errno;
    if (::write(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        return errno;
    return 0;
}

std::string firstLine(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
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
    EXPECT_EQ(info.mountPoint, kMountPoint);
    EXPECT_EQ(info.source, kDisk);
    EXPECT_EQ(info.fsType, "ext4");
    EXPECT_EQ(info.major, major(device.st_rdev));
    EXPECT_EQ(info.minor, minor(device.st_rdev));
    EXPECT_FALSE(info.readOnly());

    // df reads the same statfs figures: 1K-blocks, used, available.
    std::istringstream df(test::toolOutput("df -k " + kMountPoint + " | tail -n 1"));
    std::string source;
    int64_t blocks = 0, used = 0, available = 0;
    df >> source >> blocks >> used >> available;
    EXPECT_EQ(Partition::totalBytes(kMountPoint), blocks * 1024);
    EXPECT_EQ(Partition::availableBytes(kMountPoint), available * 1024);
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
        EXPECT_EQ(writable.mountPoint(), kMountPoint);
        EXPECT_EQ(writeFile(file, "version 2\n"), 0);
    }
    EXPECT_TRUE(Partition::isReadOnly(kMountPoint));
    EXPECT_EQ(writeFile(file, "version 3\n"), EROFS);

    // The update reached the device: it is there after a fresh mount.
    ASSERT_TRUE(Partition::unmount(kMountPoint));
    ASSERT_TRUE(Partition::mount(kDisk, kMountPoint, "ext4", MS_RDONLY));
    EXPECT_EQ(firstLine(file), "version 2");
}

}  // namespace
}  // namespace orvane
