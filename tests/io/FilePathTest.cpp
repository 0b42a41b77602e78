#include <orvane/File.h>
#include <orvane/FilePath.h>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

using FilePathTest = test::TempDirTest;
namespace fs = std::filesystem;

// std::filesystem is the peer: it agrees but for the trailing slash it keeps.
std::string peerNormal(const char* path) {
    std::string peer = fs::path(path).lexically_normal().string();
    return peer.size() > 1 && peer.back() == '/' ? peer.substr(0, peer.size() - 1) : peer;
}

TEST(FilePath, SplitsJoinsAndNormalisesWithoutTheDisk) {
    const char* cases[][2] = {// path, parent|fileName|stem|extension
                              {"/data/logs/app.log", "/data/logs|app.log|app|log"},
                              {"/data/logs/", "/data|logs|logs|"},
                              {"a.tar.gz", "|a.tar.gz|a.tar|gz"},
                              {".profile", "|.profile|.profile|"},
                              {"dir/name.", "dir|name.|name.|"},
                              {"/", "/|||"},
                              {"//a//b/", "//a|b|b|"},
                              {"", "|||"},
                              {"a/./b/../../..", "a/./b/../..|..|..|"},
                              {"/../x/.", "/../x|.|.|"}};
    for (const auto& c : cases) {
        FilePath p(c[0]);
        EXPECT_EQ(p.parent().toString() + "|" + p.fileName() + "|" + p.stem() + "|" + p.extension(),
                  c[1]);
        EXPECT_EQ(p.normalised().toString(), peerNormal(c[0])) << c[0];
    }
    EXPECT_EQ((FilePath("/data/") / "logs" / "" / "a").toString(), "/data/logs/a");
    EXPECT_EQ((FilePath("/data") / "/etc").toString(), "/etc");

    const char* relations[][2] = {{"/a/b/c", "/a/x"}, {"/a/b", "/a/b/"}, {"/a", "/a/b/c"},
                                  {"a/b", "a//./c"},  {"../a", "b"},     {"/x", "/"}};
    for (const auto& r : relations) {
        EXPECT_EQ(FilePath(r[0]).relativeTo(r[1]).toString(),
                  fs::path(r[0]).lexically_normal().lexically_relative(peerNormal(r[1])).string())
            << r[0] << " from " << r[1];
    }
    EXPECT_TRUE(FilePath("a").relativeTo("../b").empty());  // climbs out of the base
    EXPECT_TRUE(FilePath("/a").relativeTo("a").empty());
    EXPECT_EQ(test::LogCapture::get().waitLine("cannot relate"),
              "<E>DATE [FilePath::relativeTo,L#] cannot relate path(/a) to base(a): both must be "
              "absolute or both relative!");
}

// FilePath's predicates beside File's static exists() (false for a
// directory) and type() (of the entry itself, not what a link points to).
TEST_F(FilePathTest, AnswersDiskQueriesAboutEachKindOfEntry) {
    std::string file = put("data.bin", "12345");
    test::toolOutput("cd " + dir + " && ln -s data.bin link && ln -s missing dangling && " +
                     "touch -d @1700000000.25 data.bin");
    const std::pair<std::string, const char*> cases[] = {
        // exists, file, directory, link; the size but for a directory | File's view
        {file, "EF-- 5|e0"},
        {dir + "/link", "EF-L 5|e4"},
        {dir, "E-D-|-1"},
        {dir + "/dangling", "---L -1|-4"},
        {"", "---- -1|--1"}};
    for (const auto& [path, expected] : cases) {
        FilePath p(path);
        std::string got = std::string(p.exists() ? "E" : "-") + (p.isFile() ? "F" : "-") +
                          (p.isDirectory() ? "D" : "-") + (p.isLink() ? "L" : "-");
        got += p.isDirectory() ? "" : " " + std::to_string(p.size());
        EXPECT_EQ(got + "|" + (File::exists(path) ? "e" : "-") + std::to_string(File::type(path)),
                  expected)
            << path;
    }
    EXPECT_EQ(line("lstat()"), "<E>DATE [type,L#] lstat() error: No such file or directory!");
    EXPECT_EQ(FilePath(dir + "/link").modifyTime(), 1700000000250000LL);
    EXPECT_EQ(FilePath(dir + "//./link").realPath().toString(), fs::canonical(file).string());
    EXPECT_TRUE(FilePath(dir + "/dangling").realPath().empty());
    EXPECT_EQ(FilePath("a/../b").absolute().toString(), (fs::current_path() / "b").string());
}

}  // namespace
}  // namespace orvane
