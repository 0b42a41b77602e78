#include <orvane/Directory.h>
#include <orvane/Partition.h>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

class DirectoryTest : public test::TempDirTest {
  protected:
    // dir/t: a.log, .hidden.log, sub/b.log, sub/c.txt, b-again.log (a hard
    // link to sub/b.log), a fifo, a link to dir/outside (holding x.log) and
    // a link to t itself; sub is mode 750 and dated 2020-09-13.
    std::string tree() {
        test::toolOutput("cd '" + dir + "' && mkdir -p t/sub outside && for f in t/a.log " +
                         "t/.hidden.log t/sub/b.log t/sub/c.txt; do printf %s $f > $f; done && " +
                         "printf precious > outside/x.log && ln -s \"$PWD/outside\" t/outlink && " +
                         "ln -s . t/loop && mkfifo -m 640 t/pipe && chmod 750 t/sub && " +
                         "ln t/sub/b.log t/b-again.log && touch -d @1600000000 t/sub");
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
    std::vector<std::string> entries;
    for (const auto& [recursive, pattern, findArgs] : cases) {
        ASSERT_TRUE(Directory::list(t, &entries, recursive, pattern));
        std::string listed;
        for (const std::string& e : entries) listed += e + "\n";
        EXPECT_EQ(listed, found(t, findArgs)) << findArgs;
    }
    EXPECT_TRUE(!Directory::list(dir + "/none", &entries) && entries.empty());

    std::string made = Directory::createTemp(dir, "up-");
    EXPECT_EQ(test::toolOutput("stat -c %a " + made) + made.substr(0, dir.size() + 4),
              "700\n" + dir + "/up-");
    // 7 + 13 + 11 + 11 bytes; the links count nothing
    EXPECT_TRUE(Directory::totalSize(t) == 42 && Directory::totalSize(dir + "/none") == -1);
}

TEST(DirectoryDeathTest, LeavesAnotherFileSystemMountedInsideTheTree) {
    test::inPrivateTmp([] {
        test::toolOutput("mkdir -p /tmp/tree/mnt && mount -t tmpfs none /tmp/tree/mnt && " +
                         std::string("echo kept > /tmp/tree/mnt/keep"));
        EXPECT_TRUE(!Directory::remove("/tmp/tree") &&
                    std::filesystem::exists("/tmp/tree/mnt/keep"));
        EXPECT_EQ(test::LogCapture::get().waitLine("mount point"),
                  "<E>DATE [remove,L#] remove dir(/tmp/tree) error: /tmp/tree/mnt is another file "
                  "system's mount point!");
    });
}

// /dev/shm is another file system than the temporary directory: a move there
// copies. Removing never follows the links inside.
TEST_F(DirectoryTest, CopiesMovesAndRemovesTreesKeepingWhatDiffAndFindSee) {
    std::string t = tree(), copy = dir + "/copy", shown = "-printf '%P %M %l %T@\\n'";
    ASSERT_TRUE(Directory::copy(t, copy));
    EXPECT_EQ(
        test::toolOutput("diff -r --no-dereference -x pipe '" + t + "' '" + copy + "' && echo ok"),
        "ok\n");
    EXPECT_EQ(found(t, shown), found(copy, shown));  // modes, link targets, times
    // Into itself, onto an existing target.
    EXPECT_FALSE(Directory::copy(t, t + "/sub/../inside") || Directory::copy(t, copy) ||
                 Directory::rename(t, dir + "/outside"));

    std::string shm = "/dev/shm/orvane_dir_move_" + std::to_string(getpid());
    for (const std::string& to : {dir + "/moved", shm}) {
        ASSERT_TRUE(Directory::rename(t, to) && access(t.c_str(), F_OK) != 0);
        EXPECT_EQ(found(to, shown), found(copy, shown));
        t = to;
    }
    std::string viaLink = dir + "/to-outside";
    std::filesystem::create_directory_symlink(dir + "/outside", viaLink);
    // The link only, the tree, then nothing left to remove.
    EXPECT_TRUE(Directory::remove(viaLink) && Directory::remove(shm) && Directory::remove(shm) &&
                access(shm.c_str(), F_OK) != 0 && access(viaLink.c_str(), F_OK) != 0);
    EXPECT_EQ(slurp(dir + "/outside/x.log"), "precious");
}

TEST_F(DirectoryTest, PartitionFindsTheMountHoldingAPathAsFindmntDoes) {
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
        EXPECT_EQ(info.mountPoint + " " + info.fsType + std::to_string(Partition::totalBytes(odd)),
                  odd + " tmpfs65536");

        // Read back after the remount: read-only, with the flags it was mounted with.
        EXPECT_TRUE(Partition::remount(odd, true) && Partition::mountOf(odd, &info));
        EXPECT_TRUE(info.readOnly() && info.options.find("nosuid,nodev") != std::string::npos);
        EXPECT_TRUE(Partition::remount(odd, false) && Partition::sync(odd) &&
                    Partition::unmount(odd));
        EXPECT_TRUE(Partition::mountOf(odd, &info) && info.mountPoint == "/tmp");
    });
}

}  // namespace
}  // namespace orvane
