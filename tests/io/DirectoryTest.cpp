#include <orvane/Directory.h>

#include <vector>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

class DirectoryTest : public test::TempDirTest {
  protected:
    // dir/t: a.log, .hidden.log, sub/b.log, sub/c.txt, a link to dir/outside
    // (holding x.log) and a link to t itself.
    std::string tree() {
        test::toolOutput("cd '" + dir + "' && mkdir -p t/sub outside && for f in t/a.log " +
                         "t/.hidden.log t/sub/b.log t/sub/c.txt; do printf %s $f > $f; done && " +
                         "printf precious > outside/x.log && ln -s \"$PWD/outside\" t/outlink && " +
                         "ln -s . t/loop");
        return dir + "/t";
    }
    // find's view of `t`, sorted in C order, one entry a line.
    static std::string found(const std::string& t, const std::string& args) {
        return test::toolOutput("cd '" + t + "' && find . -mindepth 1 " + args +
                                " | sed 's|^\\./||' | LC_ALL=C sort");
    }
};

// The listing comes in the order that C-sorting find's output gives (names
// sorted, a directory before its contents).
TEST_F(DirectoryTest, ListsAsFindDoesMeasuresAndMakesTemporaryDirectories) {
    std::string t = tree();
    const std::tuple<bool, const char*, const char*> cases[] = {
        {false, "", "-maxdepth 1"},
        {true, "", ""},
        {true, "*.log", "-name '*.log'"},
        {false, "?.log", "-maxdepth 1 -name '?.log'"}};
    for (const auto& [recursive, pattern, findArgs] : cases) {
        std::vector<std::string> entries;
        ASSERT_TRUE(Directory::list(t, &entries, recursive, pattern));
        std::string listed;
        for (const std::string& e : entries) listed += e + "\n";
        EXPECT_EQ(listed, found(t, findArgs)) << findArgs;
    }
    std::vector<std::string> entries;
    EXPECT_FALSE(Directory::list(dir + "/none", &entries));

    std::string made = Directory::createTemp(dir, "up-");
    EXPECT_EQ(test::toolOutput("stat -c %a " + made) + made.substr(0, dir.size() + 4),
              "700\n" + dir + "/up-");
    EXPECT_EQ(Directory::createTemp(dir, "a/b"), "");
    // 7 + 13 + 11 + 11 bytes; the links count nothing
    ASSERT_EQ(link((t + "/sub/b.log").c_str(), (t + "/b-again.log").c_str()), 0);
    EXPECT_EQ(Directory::totalSize(t), 42);
    EXPECT_EQ(Directory::totalSize(t + "/sub/b.log"), 11);
    EXPECT_EQ(Directory::totalSize(dir + "/none"), -1);
}

TEST(DirectoryDeathTest, LeavesAnotherFileSystemMountedInsideTheTree) {
    test::inPrivateTmpfs("/tmp/orvane_dir_mount_test", nullptr, [](const std::string& top) {
        std::filesystem::create_directories(top + "/tree/mnt");
        if (mount("none", (top + "/tree/mnt").c_str(), "tmpfs", 0, nullptr) != 0) _exit(3);
        std::ofstream(top + "/tree/mnt/keep") << "kept";
        EXPECT_FALSE(Directory::remove(top + "/tree"));
        EXPECT_TRUE(std::filesystem::exists(top + "/tree/mnt/keep"));
        EXPECT_EQ(test::LogCapture::get().waitLine("mount point"),
                  "<E>DATE [remove,L#] remove dir(" + top + "/tree) error: " + top +
                      "/tree/mnt is another file system's mount point!");
    });
}

// /dev/shm is another file system than the temporary directory: a move there
// copies. Removing never follows the links inside.
TEST_F(DirectoryTest, CopiesMovesAndRemovesTreesKeepingWhatDiffAndFindSee) {
    std::string t = tree(), copy = dir + "/copy", shown = "-printf '%P %M %l %T@\\n'";
    ASSERT_EQ(mkfifo((t + "/pipe").c_str(), 0640) + chmod((t + "/sub").c_str(), 0750), 0);
    struct timespec times[2] = {{1600000000, 0}, {1600000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (t + "/sub").c_str(), times, 0), 0);
    ASSERT_TRUE(Directory::copy(t, copy));
    EXPECT_EQ(
        test::toolOutput("diff -r --no-dereference -x pipe '" + t + "' '" + copy + "' && echo ok"),
        "ok\n");
    EXPECT_EQ(found(t, shown), found(copy, shown));  // modes, link targets, times
    EXPECT_FALSE(Directory::copy(t, t + "/sub/../inside") || Directory::copy(t, copy));
    EXPECT_FALSE(Directory::rename(t, dir + "/outside"));  // target exists

    std::string listing = found(t, "-printf '%P %M %l\\n'");
    std::string shm = "/dev/shm/orvane_dir_move_" + std::to_string(getpid());
    for (const std::string& to : {dir + "/moved", shm}) {
        ASSERT_TRUE(Directory::rename(t, to));
        EXPECT_EQ(found(to, "-printf '%P %M %l\\n'"), listing);
        EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(t)));
        t = to;
    }
    std::string viaLink = dir + "/to-outside";
    std::filesystem::create_directory_symlink(dir + "/outside", viaLink);
    // The link only, the tree, then nothing left to remove.
    EXPECT_TRUE(Directory::remove(viaLink) && Directory::remove(shm) && Directory::remove(shm));
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(shm)) ||
                 std::filesystem::exists(std::filesystem::symlink_status(viaLink)));
    EXPECT_EQ(slurp(dir + "/outside/x.log"), "precious");
}

}  // namespace
}  // namespace orvane
