#include <gtest/gtest.h>
#include <orvane/FilePath.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

using FilePathTest = test::TempDirTest;

struct SplitCase {
    const char *path, *parent, *fileName, *stem, *extension, *normalised;
};

TEST(FilePath, SplitsAndNormalisesWithoutTheDisk) {
    const SplitCase cases[] = {
        {"/data/logs/app.log", "/data/logs", "app.log", "app", "log", "/data/logs/app.log"},
        {"/data/logs/", "/data", "logs", "logs", "", "/data/logs"},
        {"a.tar.gz", "", "a.tar.gz", "a.tar", "gz", "a.tar.gz"},
        {".profile", "", ".profile", ".profile", "", ".profile"},
        {"dir/name.", "dir", "name.", "name.", "", "dir/name."},
        {"/", "/", "", "", "", "/"},
        {"//a//b/", "//a", "b", "b", "", "/a/b"},
        {"/a", "/", "a", "a", "", "/a"},
        {"", "", "", "", "", ""},
        {"a/./b/../../..", "a/./b/../..", "..", "..", "", ".."},
        {"/../x/.", "/../x", ".", ".", "", "/x"},
        {"a/..", "a", "..", "..", "", "."},
    };
    for (const SplitCase& c : cases) {
        SCOPED_TRACE(c.path);
        FilePath p(c.path);
        EXPECT_EQ(p.parent().str(), c.parent);
        EXPECT_EQ(p.fileName(), c.fileName);
        EXPECT_EQ(p.stem(), c.stem);
        EXPECT_EQ(p.extension(), c.extension);
        EXPECT_EQ(p.normalised().str(), c.normalised);
        // std::filesystem agrees, but for the trailing slash it keeps.
        std::string peer = std::filesystem::path(c.path).lexically_normal().string();
        if (peer.size() > 1 && peer.back() == '/') peer.pop_back();
        EXPECT_EQ(p.normalised().str(), peer);
    }
}

TEST(FilePath, JoinsAndRelatesPaths) {
    const struct {
        const char *base, *part, *joined;
    } joins[] = {{"/data", "logs", "/data/logs"},
                 {"/data/", "logs", "/data/logs"},
                 {"/data", "/etc", "/etc"},
                 {"", "logs", "logs"},
                 {"data", "", "data"}};
    for (const auto& j : joins) {
        EXPECT_EQ((FilePath(j.base) / j.part).str(), j.joined) << j.base << " / " << j.part;
    }
    const struct {
        const char *path, *base, *relative;
    } relations[] = {{"/a/b/c", "/a/x", "../b/c"}, {"/a/b", "/a/b/", "."},
                     {"/a", "/a/b/c", "../.."},    {"a/b", "a//./c", "../b"},
                     {"../a", "b", "../../a"},     {"/x", "/", "x"}};
    for (const auto& r : relations) {
        EXPECT_EQ(FilePath(r.path).relativeTo(r.base).str(), r.relative) << r.path;
        EXPECT_EQ(FilePath(r.path).relativeTo(r.base).str(),
                  std::filesystem::path(r.path)
                      .lexically_normal()
                      .lexically_relative(std::filesystem::path(r.base).lexically_normal())
                      .string());
    }
    test::LogCapture::get().clear();
    EXPECT_TRUE(FilePath("/a").relativeTo("a").empty());
    EXPECT_EQ(test::LogCapture::get().waitLine("cannot relate"),
              "<E>DATE [FilePath::relativeTo,L#] cannot relate path(/a) to base(a): both must be "
              "absolute or both relative!");
    EXPECT_TRUE(FilePath("a").relativeTo("../b").empty());
    EXPECT_NE(test::LogCapture::get().waitLine("climbs out"), "");
}

TEST_F(FilePathTest, AnswersDiskQueriesAboutEachKindOfEntry) {
    std::string file = put("data.bin", "12345");
    ASSERT_EQ(symlink(file.c_str(), (dir + "/link").c_str()), 0);
    ASSERT_EQ(symlink("missing", (dir + "/dangling").c_str()), 0);
    const struct {
        std::string path;
        bool exists, isFile, isDir, isLink;
        int64_t size;
    } cases[] = {{file, true, true, false, false, 5},
                 {dir, true, false, true, false, -2},
                 {dir + "/link", true, true, false, true, 5},
                 {dir + "/dangling", false, false, false, true, -1},
                 {dir + "/none", false, false, false, false, -1},
                 {"", false, false, false, false, -1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        FilePath p(c.path);
        EXPECT_EQ(p.exists(), c.exists);
        EXPECT_EQ(p.isFile(), c.isFile);
        EXPECT_EQ(p.isDirectory(), c.isDir);
        EXPECT_EQ(p.isLink(), c.isLink);
        if (c.size != -2) {
            EXPECT_EQ(p.size(), c.size);
        }
    }
    EXPECT_EQ(line("stat(" + dir + "/none)"), "<E>DATE [FilePath::size,L#] stat(" + dir +
                                                  "/none) error: No such file or directory!");

    struct timespec times[2] = {{1700000000, 250000000}, {1700000000, 250000000}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    EXPECT_EQ(FilePath(dir + "/link").modifyTime(), 1700000000250000LL);
    EXPECT_EQ(FilePath(dir + "/none").modifyTime(), -1);

    EXPECT_EQ(FilePath(dir + "//./link").realPath().str(),
              std::filesystem::canonical(file).string());
    EXPECT_TRUE(FilePath(dir + "/dangling").realPath().empty());
    std::string cwd = std::filesystem::current_path().string();
    EXPECT_EQ(FilePath("a/../b").absolute().str(), FilePath(cwd + "/b").normalised().str());
    EXPECT_EQ(FilePath("/a/./b").absolute().str(), "/a/b");
    EXPECT_TRUE(FilePath().absolute().empty());
}

}  // namespace
}  // namespace orvane
