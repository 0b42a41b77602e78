#include <gtest/gtest.h>
#include <orvane/StrUtil.h>
#include <orvane/System.h>
#include <pthread.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

namespace orvane {
namespace {

using Pieces = std::vector<std::string>;

TEST(StrUtil, SplitsFormatsFindsAndShowsHex) {
    EXPECT_EQ(StrUtil::splitString("cpu  10 0  7", " ", true), (Pieces{"cpu", "10", "0", "7"}));
    EXPECT_EQ(StrUtil::splitString(" a  b", " ", false), (Pieces{"", "a", "", "b"}));
    EXPECT_EQ(StrUtil::splitString("a::b:::c", "::", false), (Pieces{"a", "b", ":c"}));
    EXPECT_EQ(StrUtil::splitString("abc", "", true), (Pieces{"abc"}));
    EXPECT_EQ(StrUtil::splitString("", ",", false), (Pieces{""}));
    EXPECT_EQ(StrUtil::splitString(",,,", ",", true), Pieces{});

    std::string longText(5000, 'q');
    const char* none = nullptr;
    const std::pair<std::string, std::string> cases[] = {
        {StrUtil::format("%s_%d", "Application", 1234), "Application_1234"},
        {StrUtil::format("<%s>", longText.c_str()), "<" + longText + ">"},
        {StrUtil::format(none, 1), ""},
        {StrUtil::findString("a <L9> <x>", "<", ">"), "<L9>"},
        {StrUtil::findString("x<<y>>", "<<", ">>"), "<<y>>"},
        {StrUtil::findString("> before <L9", "<", ">"), ""},
        {StrUtil::hexView(std::string("\xA5\x01\x00\xff", 4)), "A5 01 00 FF "},
        {StrUtil::hexView(nullptr, 4), ""},
        {StrUtil::hexView("ab", -1), ""}};
    for (const auto& c : cases) EXPECT_EQ(c.first, c.second);
}

TEST(System, GivesEachThreadItsKernelTaskIdAndPthreadId) {
    unsigned int mainPthread = 0, otherPthread = 0;
    EXPECT_EQ(System::getTaskId(&mainPthread), getpid());
    EXPECT_EQ(mainPthread, static_cast<unsigned int>(pthread_self()));
    int otherTask = 0;
    std::thread([&] { otherTask = System::getTaskId(&otherPthread); }).join();
    EXPECT_TRUE(otherTask > 0 && otherTask != getpid() && otherPthread != mainPthread);
}

}  // namespace
}  // namespace orvane
