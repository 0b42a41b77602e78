#include <errno.h>
#include <fcntl.h>
#include <orvane/FileWriteProtection.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "support/PrivateMount.h"
#include "support/Refusal.h"

namespace orvane {
namespace {

// What the kernel answers a writer of `path`, 0 when it may write.
int writeError(const std::string& path) { return ::access(path.c_str(), W_OK) == 0 ? 0 : errno; }

mode_t modeOf(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

// Runs in a death-test child with a private tmpfs on /tmp: /tmp/ram is a
// ramfs (no inode flags), /tmp/link a link, and /tmp itself is remounted
// read-only before the guards are tried.
void protectInPrivate() {
    const std::string top = "/tmp", conf = "/tmp/conf", file = "/tmp/ram/file";
    if (!test::hideDirectory("/tmp")) _exit(2);
    std::filesystem::create_directories(top + "/ram");
    std::filesystem::create_symlink("/etc/hostname", top + "/link");
    std::ofstream(conf) << "v1";
    if (mount("none", (top + "/ram").c_str(), "ramfs", 0, nullptr) != 0 ||
        mount(nullptr, top.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
        _exit(3);
    }
    test::expectRefusal([&] { return FileWriteProtection::release(top + "/link"); },
                        "<E>DATE [release,L#] open /tmp/link error: Too many levels of symbolic "
                        "links!");
    {
        FileWriteProtection guard(conf);
        EXPECT_TRUE(guard.isWritable() && guard.mountPoint() == top && writeError(conf) == 0);
        int busy = ::open((top + "/new").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        EXPECT_FALSE(guard.restore());  // a file open for writing
        EXPECT_NE(test::LogCapture::get().waitLine("Device or resource busy"), "");
        ::close(busy);
    }
    EXPECT_EQ(writeError(conf), EROFS);
    FileWriteProtection none(top + "/none");  // no such path: no mount, nothing to restore
    EXPECT_TRUE(!none.isWritable() && none.mountPoint().empty() && none.restore());

    // Without inode flags the write bits stand in (root passes them).
    std::ofstream(file) << "data";
    ASSERT_EQ(chmod(file.c_str(), 0664), 0);
    EXPECT_TRUE(FileWriteProtection::protect(file) && FileWriteProtection::isProtected(file) &&
                modeOf(file) == 0444);
    EXPECT_TRUE(FileWriteProtection::release(file) && !FileWriteProtection::isProtected(file) &&
                modeOf(file) == 0644);

    ASSERT_TRUE(test::dropPrivileges());
    EXPECT_FALSE(FileWriteProtection(conf).isWritable());
    EXPECT_EQ(test::LogCapture::get().waitLine("rw error"),
              "<E>DATE [remount,L#] remount /tmp rw error: Operation not permitted!");
    EXPECT_FALSE(FileWriteProtection::protect(file));
    test::exitWithChecks();
}

TEST(FileWriteProtectionDeathTest, KeepsMountsAndFilesReadOnlyOutsideAnUpdate) {
    if (!test::canHideDirectory("/tmp")) GTEST_SKIP() << "no private mount namespace here";
    EXPECT_EXIT(protectInPrivate(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace orvane
