#include <dlfcn.h>
#include <gtest/gtest.h>
#include <orvane/Pluglet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "support/LogCapture.h"

namespace orvane {
namespace {

const char* const kPlugin = ORVANE_TEST_PLUGIN;

TEST(Pluglet, ResolvesOnlyTheSymbolsPutIntoItsTable) {
    Pluglet plugin;
    EXPECT_FALSE(plugin.isOpen());
    EXPECT_FALSE(plugin.putSymbol("sample_answer"));  // nothing open yet
    ASSERT_TRUE(plugin.open(kPlugin, PLUGLET_SHARED_LIB));
    EXPECT_TRUE(plugin.isOpen());

    // In the library but never put: not found.
    EXPECT_EQ(plugin.getSymbol("sample_answer"), nullptr);
    EXPECT_TRUE(plugin.putSymbol("sample_answer"));
    EXPECT_TRUE(plugin.putSymbol("sample_twice"));
    EXPECT_TRUE(plugin.putSymbol("sample_counter"));
    EXPECT_FALSE(plugin.putSymbol("sample_missing"));
    EXPECT_EQ(plugin.getSymbol("sample_missing"), nullptr);

    auto answer = reinterpret_cast<int (*)()>(plugin.getSymbol("sample_answer"));
    auto twice = reinterpret_cast<int (*)(int)>(plugin.getSymbol("sample_twice"));
    auto counter = static_cast<int*>(plugin.getSymbol("sample_counter"));
    ASSERT_NE(answer, nullptr);
    ASSERT_NE(twice, nullptr);
    ASSERT_NE(counter, nullptr);
    EXPECT_EQ(answer(), 42);
    EXPECT_EQ(twice(21), 42);
    EXPECT_EQ(*counter, 7);
    // A second put keeps the entry and succeeds.
    EXPECT_TRUE(plugin.putSymbol("sample_answer"));
    EXPECT_EQ(plugin.getSymbol("sample_answer"), reinterpret_cast<void*>(answer));

    // Closed: no new symbols, but the table stays.
    plugin.close();
    EXPECT_FALSE(plugin.isOpen());
    EXPECT_FALSE(plugin.putSymbol("sample_twice"));
    EXPECT_NE(plugin.getSymbol("sample_twice"), nullptr);
    plugin.close();  // a second close is harmless
}

TEST(Pluglet, RefusesBadPathsAndTypesWithoutALogLine) {
    auto& capture = test::LogCapture::get();
    capture.clear();
    std::string dir = test::tempPath("pluglet_dir");
    ASSERT_EQ(mkdir(dir.c_str(), 0700), 0);

    Pluglet plugin;
    EXPECT_FALSE(plugin.open("", PLUGLET_SHARED_LIB));
    EXPECT_FALSE(plugin.open(test::tempPath("no_such_plugin") + ".so", PLUGLET_SHARED_LIB));
    EXPECT_FALSE(plugin.open(dir, PLUGLET_SHARED_LIB));  // a directory is not a plug-in
    EXPECT_FALSE(plugin.open(kPlugin, static_cast<PlugletType>(1)));
    EXPECT_FALSE(plugin.open(kPlugin, static_cast<PlugletType>(-1)));
    EXPECT_FALSE(plugin.isOpen());
    EXPECT_FALSE(plugin.putSymbol("sample_answer"));

    // A marker line: once it arrives, any line of the refusals would have too.
    Pluglet marker;
    std::string notElf = test::tempPath("not_elf") + ".so";
    std::ofstream(notElf) << "not a shared library\n";
    EXPECT_FALSE(marker.open(notElf, PLUGLET_SHARED_LIB));
    ASSERT_TRUE(capture.waitFor("open pluglet error"));
    EXPECT_EQ(capture.lines().size(), 1u);
    unlink(notElf.c_str());
    rmdir(dir.c_str());
}

TEST(Pluglet, LogsTheLoaderErrorForAFileThatIsNotALibrary) {
    auto& capture = test::LogCapture::get();
    std::string notElf = test::tempPath("garbage") + ".so";
    std::ofstream(notElf) << "#!/bin/sh\necho not a library\n";
    int fds = test::openFdCount();
    {
        Pluglet plugin;
        EXPECT_FALSE(plugin.open(notElf, PLUGLET_SHARED_LIB));
        EXPECT_FALSE(plugin.isOpen());
        EXPECT_FALSE(plugin.putSymbol("anything"));
        EXPECT_EQ(plugin.getSymbol("anything"), nullptr);
    }
    std::string line = capture.waitLine(notElf);
    EXPECT_EQ(line.rfind("<E>DATE [Pluglet::open,L#] open pluglet error:" + notElf, 0), 0u) << line;
    EXPECT_EQ(test::openFdCount(), fds);
    unlink(notElf.c_str());
}

TEST(Pluglet, ReopensAfterCloseAndUnloadsOnDestruction) {
    {
        Pluglet plugin;
        ASSERT_TRUE(plugin.open(kPlugin, PLUGLET_SHARED_LIB));
        plugin.close();
        ASSERT_TRUE(plugin.open(kPlugin, PLUGLET_SHARED_LIB));
        EXPECT_TRUE(plugin.putSymbol("sample_twice"));
        auto twice = reinterpret_cast<int (*)(int)>(plugin.getSymbol("sample_twice"));
        EXPECT_EQ(twice(5), 10);
    }
    // The destructor closed the only handle: the library is no longer loaded.
    EXPECT_EQ(dlopen(kPlugin, RTLD_LAZY | RTLD_NOLOAD), nullptr);
}

}  // namespace
}  // namespace orvane
