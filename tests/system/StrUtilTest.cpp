#include <gtest/gtest.h>
#include <orvane/StrUtil.h>
#include <orvane/System.h>
#include <pthread.h>
#include <unistd.h>

#include <string>
#include <thread>

namespace orvane {
namespace {

TEST(StrUtil, FormatsFindsAndShowsHex) {
    EXPECT_EQ(StrUtil::format("%s_%d", "Application", 1234), "Application_1234");
    std::string longText(5000, 'q');
    EXPECT_EQ(StrUtil::format("<%s>", longText.c_str()), "<" + longText + ">");
    const char* none = nullptr;
    EXPECT_EQ(StrUtil::format(none, 1), "");

    EXPECT_EQ(StrUtil::findString("a <L9> <x>", "<", ">"), "<L9>");
    EXPECT_EQ(StrUtil::findString("x<<y>>", "<<", ">>"), "<<y>>");
    EXPECT_EQ(StrUtil::findString("> before <L9", "<", ">"), "");

    EXPECT_EQ(StrUtil::hexView(std::string("\xA5\x01\x00\xff", 4)), "A5 01 00 FF ");
    EXPECT_EQ(StrUtil::hexView(nullptr, 4), "");
    EXPECT_EQ(StrUtil::hexView("ab", -1), "");
}

TEST(System, GivesEachThreadItsKernelTaskIdAndPthreadId) {
    unsigned int mainPthread = 0;
    EXPECT_EQ(System::getTaskId(&mainPthread), getpid());
    EXPECT_EQ(mainPthread, static_cast<unsigned int>(pthread_self()));
    int otherTask = 0;
    unsigned int otherPthread = 0;
    std::thread([&] { otherTask = System::getTaskId(&otherPthread); }).join();
    EXPECT_GT(otherTask, 0);
    EXPECT_NE(otherTask, getpid());
    EXPECT_NE(otherPthread, mainPthread);
}

}  // namespace
}  // namespace orvane
