#include <orvane/StrUtil.h>
#include <orvane/Thread.h>

#include <stdexcept>

#include "support/LogCapture.h"
#include "support/ProcTasks.h"

namespace orvane {
namespace {

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
    Work work([](const Thread& self) {
        while (self.isRunning()) Thread::msleep(1);
    });
    Thread thread("worker-with-a-long-name");
    std::string id;
    auto lines = test::LogCapture::get().linesDuring([&] {
        ASSERT_TRUE(thread.start(work) && test::eventually([&] { return work.runs == 1; }));
        EXPECT_FALSE(work.isStopped());
        id = StrUtil::format("[%s](%d:0x%x)", thread.name().c_str(), thread.taskId(), thread.tid());
        EXPECT_TRUE(thread.start(work));  // running: only warns
        EXPECT_TRUE(thread.stop(1000) && work.isStopped());
    });
    EXPECT_EQ(work.kernelName, "worker-with-a-l");  // the kernel keeps 15 characters
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "<I>DATE [Thread::operator()] " + id + " thread enter.",
                         "<W>DATE [Thread::start,L#] " + id + " thread is allready started!",
                         "<I>DATE [Thread::operator()] " + id + " thread exit."}));
    // Stopping again is harmless; a stopped thread starts anew.
    EXPECT_TRUE(thread.stop(100) && thread.start(work));
    EXPECT_TRUE(test::eventually([&] { return work.runs == 2; }) && thread.stop(1000));
}

// An unnamed thread runs as "AnonThread"; its body ignores the stop request,
// then throws. Threading joins its functions and logs their exceptions.
TEST(Thread, StopGivesUpAfterItsTimeoutAndReportsTheExceptionThatEndedTheRun) {
    std::atomic<bool> released{false};
    Work work([&](const Thread&) {
        while (!released) Thread::msleep(1);
        throw std::runtime_error("runnable broke");
    });
    Thread thread;
    ASSERT_TRUE(thread.start(work) && test::eventually([&] { return work.runs == 1; }));
    EXPECT_EQ(work.kernelName, "AnonThread");
    std::atomic<int> finished{0};
    auto lines = test::LogCapture::get().linesDuring([&] {
        auto begin = std::chrono::steady_clock::now();
        EXPECT_FALSE(thread.stop(100));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(95));
        released = true;
        EXPECT_FALSE(thread.stop(3000));
        EXPECT_TRUE(thread.stop(100));  // the result was taken
        Threading group("group");
        group.start([&] { finished = (Thread::msleep(20), 1); });
        group.start([] { throw std::runtime_error("function broke"); });
        group.start([] { throw 42; });
        group.start(nullptr);
    });
    EXPECT_EQ(finished, 1);  // joined before the group went
    EXPECT_EQ(lines,
              (std::vector<std::string>{
                  "<E>DATE [Thread::stop,L#] [AnonThread] force quit since wait timeout: 100 ms!!!",
                  "<E>DATE [Thread::stop,L#] [AnonThread] thread quit error: runnable broke",
                  "<E>DATE [Threading::~Threading,L#] thread quit error: function broke",
                  "<E>DATE [Threading::~Threading,L#] thread quit error: unknown exception"}));
}

}  // namespace
}  // namespace orvane
