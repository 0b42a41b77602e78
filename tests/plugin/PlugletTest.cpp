#include <dlfcn.h>
#include <orvane/Pluglet.h>

#include <fstream>

#include "support/Descriptors.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

const char* const kPlugin = ORVANE_TEST_PLUGIN;

// A file that is no shared library gets the loader's line; every other refusal
// comes before loading, without a line. Nothing stays open or loaded.
TEST(Pluglet, ResolvesOnlyTheSymbolsPutIntoItsTableAndRefusesBadPathsAndTypes) {
    std::string notElf = test::tempPath("not_elf") + ".so";
    std::ofstream(notElf) << "not a shared library\n";
    const std::vector<int> fds = test::openFds();
    {
        Pluglet plugin;
        auto lines = test::LogCapture::get().linesDuring([&] {
            EXPECT_FALSE(
                plugin.open("", PLUGLET_SHARED_LIB) ||
                plugin.open(test::tempPath("no_such_plugin") + ".so", PLUGLET_SHARED_LIB) ||
                plugin.open(kPlugin, static_cast<PlugletType>(1)) ||
                plugin.open(notElf, PLUGLET_SHARED_LIB) || plugin.putSymbol("sample_answer"));
        });
        std::string prefix = "<E>DATE [Pluglet::open,L#] open pluglet error:" + notElf;
        EXPECT_TRUE(lines.size() == 1 && lines[0].rfind(prefix, 0) == 0) << lines.size();
        unlink(notElf.c_str());
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
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
}

}  // namespace
}  // namespace orvane
