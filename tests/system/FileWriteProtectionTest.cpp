#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/FileWriteProtection.h>
#include <orvane/Partition.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/LogCapture.h"
#include "support/PrivateMount.h"

namespace orvane {
namespace {

// The errno of opening `path` for writing (creating it), 0 when it opens.
int writeError(const std::string& path) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return errno;
    ::close(fd);
    return 0;
}

bool mountedReadOnly(const std::string& path) {
    struct statvfs st;
    return statvfs(path.c_str(), &st) == 0 && (st.f_flag & ST_RDONLY) != 0;
}

mode_t modeOf(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

TEST(FileWriteProtection, RefusesWhatIsNotARegularFile) {
    auto& capture = test::LogCapture::fresh();
    std::string dir = test::tempPath("fwp");
    std::filesystem::create_directories(dir);
    std::filesystem::create_symlink("/etc/hostname", dir + "/link");
    const struct {
        std::string path, text;
    } cases[] = {{"", "path is empty!"},
                 {dir, dir + " is not a regular file!"},
                 {dir + "/link", "open " + dir + "/link error: Too many levels"},
                 {dir + "/none", "open " + dir + "/none error: No such file"}};
    for (const auto& c : cases) {
        EXPECT_FALSE(FileWriteProtection::protect(c.path)) << c.path;
        EXPECT_NE(capture.waitLine(c.text), "") << c.text;
    }
    EXPECT_FALSE(FileWriteProtection::isProtected(dir + "/none"));
    FileWriteProtection guard(dir + "/none");
    EXPECT_FALSE(guard.isWritable());
    EXPECT_EQ(guard.mountPoint(), "");
    EXPECT_TRUE(guard.restore());
    std::filesystem::remove_all(dir);
}

// Runs in a death-test child with a private tmpfs on `top`: top/rw stays a
// writable tmpfs, top/ram a ramfs (no inode flags), and top itself is
// remounted read-only before the guards are tried.
void protectInPrivate(const std::string& top) {
    if (!test::hideDirectory(top.c_str())) _exit(2);
    auto& capture = test::LogCapture::get();
    std::filesystem::create_directories(top + "/rw");
    std::filesystem::create_directories(top + "/ram");
    std::ofstream(top + "/conf") << "v1";
    if (mount("none", (top + "/rw").c_str(), "tmpfs", 0, nullptr) != 0 ||
        mount("none", (top + "/ram").c_str(), "ramfs", 0, nullptr) != 0 ||
        mount(nullptr, top.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
        _exit(3);
    }
    ASSERT_EQ(writeError(top + "/conf"), EROFS);
    {
        FileWriteProtection guard(top + "/conf");
        EXPECT_TRUE(guard.isWritable());
        EXPECT_EQ(guard.mountPoint(), top);
        {
            FileWriteProtection nested(top);  // already writable: left so
            EXPECT_TRUE(nested.isWritable());
        }
        EXPECT_EQ(writeError(top + "/conf"), 0);
        int busy = ::open((top + "/new").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        EXPECT_FALSE(guard.restore());  // a file open for writing
        EXPECT_NE(capture.waitLine("Device or resource busy"), "");
        ::close(busy);
    }
    EXPECT_TRUE(mountedReadOnly(top));
    {
        FileWriteProtection writable(top + "/rw");
        EXPECT_TRUE(writable.isWritable());
    }
    EXPECT_FALSE(mountedReadOnly(top + "/rw"));

    // One file each: immutable attribute on tmpfs, write bits on ramfs.
    const struct {
        std::string path;
        int refusal;
        mode_t mode, protectedMode, releasedMode;
    } files[] = {{top + "/rw/file", EPERM, 0664, 0664, 0664},
                 {top + "/ram/file", 0, 0664, 0444, 0644}};
    for (const auto& f : files) {
        SCOPED_TRACE(f.path);
        std::ofstream(f.path) << "data";
        ASSERT_EQ(chmod(f.path.c_str(), f.mode), 0);
        EXPECT_TRUE(FileWriteProtection::protect(f.path));
        EXPECT_TRUE(FileWriteProtection::isProtected(f.path));
        EXPECT_EQ(modeOf(f.path), f.protectedMode);
        if (f.refusal != 0) {
            EXPECT_EQ(writeError(f.path), f.refusal);  // even root
        }
        EXPECT_TRUE(FileWriteProtection::release(f.path));
        EXPECT_FALSE(FileWriteProtection::isProtected(f.path));
        EXPECT_EQ(modeOf(f.path), f.releasedMode);
        EXPECT_EQ(writeError(f.path), 0);
    }

    ASSERT_TRUE(test::dropPrivileges());
    FileWriteProtection refused(top + "/conf");
    EXPECT_FALSE(refused.isWritable());
    EXPECT_EQ(capture.waitLine("rw error"),
              "<E>DATE [remount,L#] remount " + top + " rw error: Operation not permitted!");
    EXPECT_FALSE(FileWriteProtection::protect(top + "/rw/file"));
    EXPECT_EQ(capture.waitLine("immutable"), "<E>DATE [protect,L#] set immutable attribute of " +
                                                 top + "/rw/file error: Operation not permitted!");
    test::exitWithChecks();
}

TEST(FileWriteProtectionDeathTest, KeepsMountsAndFilesReadOnlyOutsideAnUpdate) {
    std::string top = "/tmp/orvane_write_protection_test";
    std::filesystem::create_directories(top);
    if (!test::canHideDirectory(top.c_str())) {
        std::filesystem::remove(top);
        GTEST_SKIP() << "no private mount namespace here";
    }
    EXPECT_EXIT(protectInPrivate(top), ::testing::ExitedWithCode(0), "");
    std::filesystem::remove(top);
}

}  // namespace
}  // namespace orvane
