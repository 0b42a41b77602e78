#include <dlfcn.h>
#include <gtest/gtest.h>
#include <orvane/Pluglet.h>

#include <fstream>

#include "support/Descriptors.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

const char* const kPlugin = ORVANE_TEST_PLUGIN;

TEST(Pluglet, ResolvesOnlyTheSymbolsPutIntoItsTable) {
    {
        Pluglet plugin;
        ASSERT_TRUE(plugin.open(kPlugin, PLUGLET_SHARED_LIB));
        EXPECT_EQ(plugin.getSymbol("sample_answer"), nullptr);  // in the library, never put
        EXPECT_TRUE(plugin.putSymbol("sample_answer") && !plugin.putSymbol("sample_missing"));
        auto answer = reinterpret_cast<int (*)()>(plugin.getSymbol("sample_answer"));
        EXPECT_EQ(answer != nullptr ? answer() : 0, 42);

        plugin.close();  // closed: no new symbols, but the table stays
        EXPECT_TRUE(!plugin.putSymbol("sample_twice") && plugin.getSymbol("sample_answer"));
        EXPECT_TRUE(plugin.open(kPlugin, PLUGLET_SHARED_LIB) && plugin.putSymbol("sample_twice"));
    }
    // The destructor closed the only handle: the library is no longer loaded.
    EXPECT_EQ(dlopen(kPlugin, RTLD_LAZY | RTLD_NOLOAD), nullptr);
}

TEST(Pluglet, RefusesBadPathsAndTypesAndLogsOnlyTheLoaderError) {
    auto& capture = test::LogCapture::fresh();
    std::string notElf = test::tempPath("not_elf") + ".so";
    std::ofstream(notElf) << "not a shared library\n";
    const std::vector<int> fds = test::openFds();
    Pluglet plugin;
    // Refused before loading, without a line; no symbol while nothing is open.
    EXPECT_FALSE(plugin.open("", PLUGLET_SHARED_LIB) ||
                 plugin.open(test::tempPath("no_such_plugin") + ".so", PLUGLET_SHARED_LIB) ||
                 plugin.open(kPlugin, static_cast<PlugletType>(1)) ||
                 plugin.open(notElf, PLUGLET_SHARED_LIB) || plugin.putSymbol("sample_answer"));
    std::string line = capture.waitLine(notElf);
    EXPECT_EQ(line.rfind("<E>DATE [Pluglet::open,L#] open pluglet error:" + notElf, 0), 0u) << line;
    EXPECT_EQ(capture.lines().size(), 1u);
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
    unlink(notElf.c_str());
}

}  // namespace
}  // namespace orvane
