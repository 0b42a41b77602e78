#include <errno.h>
#include <fcntl.h>
#include <orvane/FileWriteProtection.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <tuple>

#include "support/PrivateMount.h"
#include "support/Refusal.h"

namespace orvane {
namespace {

// What the kernel answers a writer of `path` (EROFS, EPERM for an immutable
// file), 0 when it may write.
int writeError(const std::string& path) { return ::access(path.c_str(), W_OK) == 0 ? 0 : errno; }

mode_t modeOf(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

// Runs in a death-test child with a private tmpfs on /tmp: /tmp/rw stays a
// writable tmpfs, /tmp/ram is a ramfs (no inode flags), /tmp/link a link,
// and /tmp itself is remounted read-only before the guards are tried.
void protectInPrivate() {
    const std::string top = "/tmp";
    if (!test::hideDirectory("/tmp")) _exit(2);
    std::filesystem::create_directories(top + "/rw");
    std::filesystem::create_directories(top + "/ram");
    std::filesystem::create_symlink("/etc/hostname", top + "/link");
    std::ofstream(top + "/conf") << "v1";
    if (mount("none", (top + "/rw").c_str(), "tmpfs", 0, nullptr) != 0 ||
        mount("none", (top + "/ram").c_str(), "ramfs", 0, nullptr) != 0 ||
        mount(nullptr, top.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
        _exit(3);
    }
    test::expectRefusal([&] { return FileWriteProtection::release(top + "/link"); },
                        "<E>DATE [release,L#] open /tmp/link error: Too many levels of symbolic "
                        "links!");
    ASSERT_EQ(writeError(top + "/conf"), EROFS);
    {
        FileWriteProtection guard(top + "/conf");
        EXPECT_TRUE(guard.isWritable() && guard.mountPoint() == top);
        EXPECT_TRUE(FileWriteProtection(top).isWritable());  // already writable: left so
        EXPECT_EQ(writeError(top + "/conf"), 0);
        int busy = ::open((top + "/new").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        EXPECT_FALSE(guard.restore());  // a file open for writing
        EXPECT_NE(test::LogCapture::get().waitLine("Device or resource busy"), "");
        ::close(busy);
    }
    EXPECT_EQ(writeError(top + "/conf"), EROFS);
    FileWriteProtection none(top + "/none");  // no such path: no mount, nothing to restore
    EXPECT_TRUE(!none.isWritable() && none.mountPoint().empty() && none.restore());

    // One file each: immutable attribute on tmpfs, write bits on ramfs.
    const std::tuple<std::string, int, mode_t, mode_t> files[] = {
        {top + "/rw/file", EPERM, 0664, 0664}, {top + "/ram/file", 0, 0444, 0644}};
    for (const auto& [path, refusal, protectedMode, releasedMode] : files) {
        SCOPED_TRACE(path);
        std::ofstream(path) << "data";
        ASSERT_EQ(chmod(path.c_str(), 0664), 0);
        EXPECT_TRUE(FileWriteProtection::protect(path) && FileWriteProtection::isProtected(path));
        // Root is stopped by the attribute only.
        EXPECT_TRUE(modeOf(path) == protectedMode && writeError(path) == refusal);
        EXPECT_TRUE(FileWriteProtection::release(path) && !FileWriteProtection::isProtected(path));
        EXPECT_TRUE(modeOf(path) == releasedMode && writeError(path) == 0);
    }

    ASSERT_TRUE(test::dropPrivileges());
    FileWriteProtection refused(top + "/conf");
    EXPECT_FALSE(refused.isWritable());
    EXPECT_EQ(test::LogCapture::get().waitLine("rw error"),
              "<E>DATE [remount,L#] remount /tmp rw error: Operation not permitted!");
    EXPECT_FALSE(FileWriteProtection::protect(top + "/rw/file"));
    test::exitWithChecks();
}

TEST(FileWriteProtectionDeathTest, KeepsMountsAndFilesReadOnlyOutsideAnUpdate) {
    if (!test::canHideDirectory("/tmp")) GTEST_SKIP() << "no private mount namespace here";
    EXPECT_EXIT(protectInPrivate(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace orvane
