#include <gtest/gtest.h>
#include <orvane/StrUtil.h>
#include <orvane/Thread.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <stdexcept>

#include "support/Eventually.h"
#include "support/LogCapture.h"
#include "support/ProcTasks.h"

namespace orvane {
namespace {

using test::eventually;

// Runs the test's function, noting how often it ran and under which kernel name.
struct Work : Runnable {
    explicit Work(std::function<void(const Thread&)> fn) : body(std::move(fn)) {}
    void run(const Thread& thread) override {
        kernelName = test::threadName(thread.taskId());
        ++runs;
        body(thread);
    }
    std::function<void(const Thread&)> body;
    std::string kernelName;
    std::atomic<int> runs{0};
};

TEST(Thread, RunsUnderItsKernelNameStartsOnceAndRestartsAfterStop) {
    auto& capture = test::LogCapture::fresh();
    Work work([](const Thread& self) {
        while (self.isRunning()) Thread::msleep(1);
    });
    Thread thread("worker-with-a-long-name");
    ASSERT_TRUE(thread.start(work));
    ASSERT_TRUE(eventually([&] { return work.runs == 1; }));
    EXPECT_FALSE(work.isStopped());
    EXPECT_EQ(work.kernelName, "worker-with-a-l");  // the kernel keeps 15 characters
    std::string id =
        StrUtil::format("[%s](%d:0x%x)", "worker-with-a-long-name", thread.taskId(), thread.tid());
    EXPECT_TRUE(thread.start(work));  // running: only warns
    EXPECT_TRUE(thread.stop(1000));
    EXPECT_TRUE(work.isStopped());
    EXPECT_TRUE(capture.waitFor(id + " thread exit."));
    std::vector<std::string> lines;
    for (auto& line : capture.matching(id)) lines.push_back(test::LogCapture::normalise(line));
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "<I>DATE [Thread::operator()] " + id + " thread enter.",
                         "<W>DATE [Thread::start,L#] " + id + " thread is allready started!",
                         "<I>DATE [Thread::operator()] " + id + " thread exit."}));
    EXPECT_EQ(work.runs, 1);
    EXPECT_TRUE(thread.stop(100));  // stopping again is harmless
    ASSERT_TRUE(thread.start(work));
    EXPECT_TRUE(eventually([&] { return work.runs == 2; }));
    EXPECT_TRUE(thread.stop(1000));
}

// An unnamed thread runs as "AnonThread"; its body ignores the stop request,
// then throws.
TEST(Thread, StopGivesUpAfterItsTimeoutAndReportsTheExceptionThatEndedTheRun) {
    auto& capture = test::LogCapture::fresh();
    std::atomic<bool> released{false};
    Work work([&](const Thread&) {
        while (!released) Thread::msleep(1);
        throw std::runtime_error("runnable broke");
    });
    Thread thread;
    ASSERT_TRUE(thread.start(work));
    ASSERT_TRUE(eventually([&] { return work.runs == 1; }));
    EXPECT_EQ(work.kernelName, "AnonThread");
    auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(thread.stop(100));
    auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(waited, std::chrono::milliseconds(95));
    EXPECT_LT(waited, std::chrono::milliseconds(2000));
    EXPECT_EQ(capture.waitLine("force quit"),
              "<E>DATE [Thread::stop,L#] [AnonThread] force quit since wait timeout: 100 ms!!!");
    released = true;
    EXPECT_FALSE(thread.stop(3000));
    EXPECT_EQ(capture.waitLine("runnable broke"),
              "<E>DATE [Thread::stop,L#] [AnonThread] thread quit error: runnable broke");
    EXPECT_TRUE(thread.stop(100));  // the result was taken
}

TEST(Threading, JoinsEveryFunctionAndLogsTheirExceptions) {
    std::atomic<int> finished{0};
    auto lines = test::LogCapture::get().linesDuring([&] {
        Threading group("group");
        group.start([&] {
            Thread::msleep(20);
            ++finished;
        });
        group.start([] { throw std::runtime_error("function broke"); });
        group.start([] { throw 42; });
        group.start(nullptr);
    });
    EXPECT_EQ(finished, 1);
    EXPECT_EQ(lines,
              (std::vector<std::string>{
                  "<E>DATE [Threading::~Threading,L#] thread quit error: function broke",
                  "<E>DATE [Threading::~Threading,L#] thread quit error: unknown exception"}));
}

}  // namespace
}  // namespace orvane
