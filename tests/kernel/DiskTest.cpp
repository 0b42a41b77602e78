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
#include <string>
#include <vector>

#include "support/ToolRun.h"

// Partition and FileWriteProtection on a real block device: /dev/vda, a
// virtio disk holding a 16 MiB ext4 file system made on the host.
namespace orvane {
namespace {

const char* const kDisk = "/dev/vda";
const char* const kMountPoint = "/mnt/disk";

std::string readAll(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// Writes `text` to a new file; the errno of the failure, 0 on success.
int writeFile(const std::string& path, const std::string& text) {
    UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!fd) return errno;
    if (::write(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        return errno;
    return 0;
}

class KernelDisk : public ::testing::Test {
  protected:
    void SetUp() override {
        mkdir(kMountPoint, 0755);
        ASSERT_TRUE(Partition::mount(kDisk, kMountPoint, "ext4"));
    }
    void TearDown() override { Partition::unmount(kMountPoint, true); }
};

TEST_F(KernelDisk, DescribesTheMountedDevice) {
    MountInfo info;
    ASSERT_TRUE(Partition::mountOf(std::string(kMountPoint) + "/lost+found/..", &info));
    struct stat device {};
    ASSERT_EQ(stat(kDisk, &device), 0);
    EXPECT_EQ(info.mountPoint, kMountPoint);
    EXPECT_EQ(info.source, kDisk);
    EXPECT_EQ(info.fsType, "ext4");
    EXPECT_EQ(info.major, major(device.st_rdev));
    EXPECT_EQ(info.minor, minor(device.st_rdev));
    EXPECT_FALSE(info.readOnly());

    // df reads the same statfs figures: 1K-blocks, used, available.
    std::istringstream df(test::toolOutput(std::string("df -k ") + kMountPoint + " | tail -n 1"));
    std::string source;
    int64_t blocks = 0, used = 0, available = 0;
    df >> source >> blocks >> used >> available;
    EXPECT_EQ(Partition::totalBytes(kMountPoint), blocks * 1024);
    EXPECT_EQ(Partition::availableBytes(kMountPoint), available * 1024);
    EXPECT_GE(Partition::freeBytes(kMountPoint), Partition::availableBytes(kMountPoint));

    // A MiB written and synced is a MiB less room.
    const int64_t before = Partition::freeBytes(kMountPoint);
    ASSERT_EQ(writeFile(std::string(kMountPoint) + "/mib", std::string(1 << 20, 'x')), 0);
    ASSERT_TRUE(Partition::sync(kMountPoint));
    EXPECT_LE(Partition::freeBytes(kMountPoint), before - (1 << 20));
    unlink((std::string(kMountPoint) + "/mib").c_str());
}

TEST_F(KernelDisk, RemountsReadOnlyOnlyWhenNothingIsOpenForWriting) {
    const std::string file = std::string(kMountPoint) + "/open";
    {
        UniqueFd writer(::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
        ASSERT_TRUE(writer.valid());
        EXPECT_FALSE(Partition::remount(kMountPoint, true));  // busy
        EXPECT_FALSE(Partition::isReadOnly(kMountPoint));
    }
    ASSERT_TRUE(Partition::remount(kMountPoint, true));
    EXPECT_TRUE(Partition::isReadOnly(kMountPoint));
    EXPECT_EQ(writeFile(file, "no"), EROFS);
    ASSERT_TRUE(Partition::remount(kMountPoint, false));
    EXPECT_EQ(writeFile(file, "yes"), 0);
}

TEST_F(KernelDisk, GuardOpensAReadOnlyMountForAnUpdateThatLastsOnTheDisk) {
    const std::string file = std::string(kMountPoint) + "/config";
    ASSERT_TRUE(Partition::remount(kMountPoint, true));
    {
        FileWriteProtection writable(file.substr(0, file.rfind('/')));
        ASSERT_TRUE(writable.isWritable());
        EXPECT_EQ(writable.mountPoint(), kMountPoint);
        EXPECT_EQ(writeFile(file, "version 2\n"), 0);
        // Nested on the same mount: left alone, it leaves the mount writable.
        {
            FileWriteProtection nested(file);
            EXPECT_TRUE(nested.isWritable());
        }
        EXPECT_FALSE(Partition::isReadOnly(kMountPoint));
    }
    EXPECT_TRUE(Partition::isReadOnly(kMountPoint));
    EXPECT_EQ(writeFile(file, "version 3\n"), EROFS);

    // The update reached the device: it is there after a fresh mount.
    ASSERT_TRUE(Partition::unmount(kMountPoint));
    ASSERT_TRUE(Partition::mount(kDisk, kMountPoint, "ext4", MS_RDONLY));
    EXPECT_EQ(readAll(file), "version 2\n");
}

TEST_F(KernelDisk, ProtectsAFileEvenFromRoot) {
    const std::string file = std::string(kMountPoint) + "/calibration";
    const std::string renamed = file + ".old";
    ASSERT_EQ(writeFile(file, "gain 3\n"), 0);
    ASSERT_TRUE(FileWriteProtection::protect(file));
    EXPECT_TRUE(FileWriteProtection::isProtected(file));
    // ext4's immutable attribute stops root as well.
    EXPECT_EQ(writeFile(file, "gain 4\n"), EPERM);
    EXPECT_NE(rename(file.c_str(), renamed.c_str()), 0);
    EXPECT_NE(unlink(file.c_str()), 0);
    EXPECT_EQ(readAll(file), "gain 3\n");

    ASSERT_TRUE(FileWriteProtection::release(file));
    EXPECT_FALSE(FileWriteProtection::isProtected(file));
    EXPECT_EQ(writeFile(file, "gain 4\n"), 0);
    EXPECT_EQ(unlink(file.c_str()), 0);
}

}  // namespace
}  // namespace orvane
