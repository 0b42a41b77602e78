#include <gtest/gtest.h>
#include <orvane/Directory.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "io/TempDirFixture.h"
#include "support/PrivateMount.h"

namespace orvane {
namespace {

class DirectoryTest : public test::TempDirTest {
  protected:
    // dir/t: a.log, .hidden.log, sub/b.log, sub/c.txt, a link to dir/outside
    // (holding x.log) and a link to t itself.
    std::string tree() {
        std::string t = dir + "/t";
        std::filesystem::create_directories(t + "/sub");
        std::filesystem::create_directories(dir + "/outside");
        put("t/a.log", "aaaa");
        put("t/.hidden.log", "h");
        put("t/sub/b.log", "bbbbbbbbbb");
        put("t/sub/c.txt", "c");
        put("outside/x.log", "precious");
        EXPECT_EQ(symlink((dir + "/outside").c_str(), (t + "/outlink").c_str()), 0);
        EXPECT_EQ(symlink(".", (t + "/loop").c_str()), 0);
        return t;
    }
    // find's view of `t`, sorted, as "a\nb\n".
    static std::string found(const std::string& t, const std::string& args) {
        return commandOutput("cd '" + t + "' && find . -mindepth 1 " + args +
                             " | sed 's|^\\./||' | LC_ALL=C sort");
    }
    static std::string joined(std::vector<std::string> names) {
        std::sort(names.begin(), names.end());
        std::string out;
        for (const std::string& n : names) out += n + "\n";
        return out;
    }
};

TEST_F(DirectoryTest, ListsEntriesAsFindDoesWithoutFollowingLinks) {
    std::string t = tree();
    const struct {
        bool recursive;
        const char *pattern, *findArgs;
    } cases[] = {{false, "", "-maxdepth 1"},
                 {true, "", ""},
                 {true, "*.log", "-name '*.log'"},
                 {false, "?.log", "-maxdepth 1 -name '?.log'"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.findArgs);
        std::vector<std::string> entries;
        ASSERT_TRUE(Directory::list(t, &entries, c.recursive, c.pattern));
        EXPECT_EQ(joined(entries), found(t, c.findArgs));
    }
    std::vector<std::string> entries;
    ASSERT_TRUE(Directory::list(t, &entries, true));
    EXPECT_EQ(entries, (std::vector<std::string>{".hidden.log", "a.log", "loop", "outlink", "sub",
                                                 "sub/b.log", "sub/c.txt"}));

    EXPECT_FALSE(Directory::list(dir + "/none", &entries));
    EXPECT_EQ(line("list dir"),
              "<E>DATE [list,L#] list dir(" + dir + "/none) error: No such file or directory!");
    EXPECT_FALSE(Directory::list(t, nullptr));
}

TEST_F(DirectoryTest, RemovesATreeButNeverWhatItsLinksPointTo) {
    std::string t = tree();
    std::string viaLink = dir + "/to-outside";
    ASSERT_EQ(symlink((dir + "/outside").c_str(), viaLink.c_str()), 0);
    EXPECT_TRUE(Directory::remove(viaLink));  // the link only
    EXPECT_TRUE(Directory::remove(t));
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(t)));
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(viaLink)));
    EXPECT_EQ(slurp(dir + "/outside/x.log"), "precious");
    EXPECT_TRUE(Directory::remove(t));  // nothing left to remove
    EXPECT_FALSE(Directory::remove(""));
}

// Runs in a death-test child: a tree with a tmpfs mounted inside it.
void removeAcrossAMount(const std::string& top) {
    if (!test::hideDirectory(top.c_str())) _exit(2);
    std::filesystem::create_directories(top + "/tree/mnt");
    std::ofstream(top + "/tree/file") << "x";
    if (mount("none", (top + "/tree/mnt").c_str(), "tmpfs", 0, nullptr) != 0) _exit(3);
    std::ofstream(top + "/tree/mnt/keep") << "kept";
    auto& capture = test::LogCapture::get();
    EXPECT_FALSE(Directory::remove(top + "/tree"));
    EXPECT_TRUE(std::filesystem::exists(top + "/tree/mnt/keep"));
    EXPECT_EQ(capture.waitLine("mount point"),
              "<E>DATE [remove,L#] remove dir(" + top + "/tree) error: " + top +
                  "/tree/mnt is another file system's mount point!");
    test::exitWithChecks();
}

TEST(DirectoryDeathTest, LeavesAnotherFileSystemMountedInsideTheTree) {
    std::string top = "/tmp/orvane_dir_mount_test";
    std::filesystem::create_directories(top);
    if (!test::canHideDirectory(top.c_str())) {
        std::filesystem::remove(top);
        GTEST_SKIP() << "no private mount namespace here";
    }
    EXPECT_EXIT(removeAcrossAMount(top), ::testing::ExitedWithCode(0), "");
    std::filesystem::remove(top);
}

TEST_F(DirectoryTest, CopiesATreeThatDiffFindsEqual) {
    std::string t = tree();
    ASSERT_EQ(mkfifo((t + "/pipe").c_str(), 0640), 0);
    ASSERT_EQ(chmod((t + "/sub").c_str(), 0750) + chmod((t + "/sub/c.txt").c_str(), 0604), 0);
    struct timespec times[2] = {{1600000000, 0}, {1600000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (t + "/sub").c_str(), times, 0), 0);

    std::string copy = dir + "/copy";
    ASSERT_TRUE(Directory::copy(t, copy));
    EXPECT_EQ(
        commandOutput("diff -r --no-dereference -x pipe '" + t + "' '" + copy + "' && echo same"),
        "same\n");
    EXPECT_EQ(found(t, "-printf '%P %M %l %T@\\n'"), found(copy, "-printf '%P %M %l %T@\\n'"));

    EXPECT_FALSE(Directory::copy(t, t + "/sub/../inside"));
    EXPECT_NE(line("/inside: Invalid argument"), "");
    EXPECT_FALSE(Directory::copy(t, copy));
    EXPECT_EQ(line("File exists"), "<E>DATE [copy,L#] copy(" + t + ")->(" + copy + ") error at " +
                                       copy + ": File exists!");
}

TEST_F(DirectoryTest, MovesTreesWithinAndAcrossFileSystems) {
    std::string t = tree();
    std::string listing = found(t, "-printf '%P %M %l\\n'");
    ASSERT_TRUE(Directory::rename(t, dir + "/moved"));
    EXPECT_EQ(found(dir + "/moved", "-printf '%P %M %l\\n'"), listing);
    EXPECT_FALSE(Directory::rename(dir + "/moved", dir + "/outside"));  // target exists
    EXPECT_NE(line("rename("), "");

    std::string shm = test::tempPath("dir_shm");
    shm.replace(0, shm.find("/orvane_"), "/dev/shm");
    struct stat a, b;
    if (stat("/dev/shm", &a) != 0 || stat(dir.c_str(), &b) != 0 || a.st_dev == b.st_dev) {
        GTEST_SKIP() << "/dev/shm is not another file system here";
    }
    ASSERT_TRUE(Directory::rename(dir + "/moved", shm));
    EXPECT_EQ(found(shm, "-printf '%P %M %l\\n'"), listing);
    EXPECT_FALSE(std::filesystem::exists(dir + "/moved"));
    EXPECT_TRUE(Directory::remove(shm));
}

TEST_F(DirectoryTest, CreatesUniqueTemporaryDirectoriesAndMeasuresTrees) {
    std::string first = Directory::createTemp(dir, "up-");
    EXPECT_NE(first, Directory::createTemp(dir, "up-"));
    EXPECT_EQ(commandOutput("stat -c %a " + first), "700\n");
    EXPECT_EQ(first.rfind(dir + "/up-", 0), 0u);
    EXPECT_EQ(Directory::createTemp(dir, "a/b"), "");
    EXPECT_EQ(line("prefix"), "<E>DATE [createTemp,L#] prefix(a/b) must not hold a '/'!");

    std::string t = tree();  // 4 + 1 + 10 + 1 bytes, the links count nothing
    ASSERT_EQ(link((t + "/sub/b.log").c_str(), (t + "/b-again.log").c_str()), 0);
    EXPECT_EQ(Directory::totalSize(t), 16);
    EXPECT_EQ(Directory::totalSize(t + "/sub/b.log"), 10);
    EXPECT_EQ(Directory::totalSize(dir + "/none"), -1);
}

}  // namespace
}  // namespace orvane
