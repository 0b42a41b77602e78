#include <gtest/gtest.h>
#include <orvane/StrUtil.h>
#include <orvane/System.h>
#include <orvane/Thread.h>
#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "support/Eventually.h"
#include "support/LogCapture.h"
#include "support/ProcTasks.h"

namespace orvane {
namespace {

using test::eventually;

using Clock = std::chrono::steady_clock;

long msSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// Loops politely until stopped, noting who ran it and under which kernel name.
class PoliteWork : public Runnable {
  public:
    void run(const Thread& thread) override {
        taskId = thread.taskId();
        kernelName = test::threadName(taskId);
        sawRunning = thread.isRunning() && !isStopped();
        ++runs;
        while (thread.isRunning()) Thread::msleep(1);
    }
    std::atomic<int> taskId{0};
    std::string kernelName;
    std::atomic<bool> sawRunning{false};
    std::atomic<int> runs{0};
};

// Ignores the stop request until released.
class StubbornWork : public Runnable {
  public:
    void run(const Thread&) override {
        entered = true;
        while (!released) Thread::msleep(1);
    }
    std::atomic<bool> entered{false};
    std::atomic<bool> released{false};
};

std::string idText(const Thread& thread) {
    return StrUtil::format("[%s](%d:0x%x)", thread.name().c_str(), thread.taskId(), thread.tid());
}

TEST(Thread, RunsUnderItsKernelNameAndLogsEnterAndExit) {
    auto& capture = test::LogCapture::fresh();
    PoliteWork work;
    Thread thread("worker-enter");
    EXPECT_TRUE(work.isStopped());
    ASSERT_TRUE(thread.start(work));
    ASSERT_TRUE(eventually([&] { return work.runs == 1; }));
    EXPECT_TRUE(work.sawRunning);
    EXPECT_FALSE(work.isStopped());
    EXPECT_EQ(work.kernelName, "worker-enter");
    EXPECT_NE(thread.taskId(), 0);
    EXPECT_EQ(capture.waitLine("[worker-enter]"),
              "<I>DATE [Thread::operator()] " + idText(thread) + " thread enter.");

    EXPECT_TRUE(thread.stop(1000));
    EXPECT_FALSE(thread.isRunning());
    EXPECT_TRUE(work.isStopped());
    EXPECT_EQ(capture.waitLine(idText(thread) + " thread exit."),
              "<I>DATE [Thread::operator()] " + idText(thread) + " thread exit.");
    // Stopping again, or a thread never started, is harmless.
    EXPECT_TRUE(thread.stop(100));
    Thread idle("never-started");
    EXPECT_TRUE(idle.stop(0));
}

TEST(Thread, StartsOnceAndCanBeStartedAgainAfterStop) {
    auto& capture = test::LogCapture::fresh();
    PoliteWork work;
    Thread thread("twice-started");
    ASSERT_TRUE(thread.start(work));
    ASSERT_TRUE(eventually([&] { return work.runs == 1; }));
    EXPECT_TRUE(thread.start(work));
    EXPECT_EQ(capture.waitLine("thread is allready started!"),
              "<W>DATE [Thread::start,L#] " + idText(thread) + " thread is allready started!");
    EXPECT_TRUE(thread.stop(1000));
    EXPECT_EQ(work.runs, 1);
    // enter, the warning, exit: one body ran
    EXPECT_TRUE(capture.waitFor("[twice-started]", 3000, 3));
    Thread::msleep(30);
    EXPECT_EQ(capture.matching("[twice-started]").size(), 3u);

    ASSERT_TRUE(thread.start(work));
    ASSERT_TRUE(eventually([&] { return work.runs == 2; }));
    EXPECT_TRUE(thread.stop(1000));
    auto clone = thread.clone();
    EXPECT_EQ(clone->name(), "twice-started");
    EXPECT_FALSE(clone->isRunning());
}

TEST(Thread, StopGivesUpAfterItsTimeoutWhenTheRunnableIgnoresIt) {
    auto& capture = test::LogCapture::fresh();
    StubbornWork work;
    Thread thread("stubborn");
    ASSERT_TRUE(thread.start(work));
    ASSERT_TRUE(eventually([&] { return work.entered.load(); }));
    auto begin = Clock::now();
    EXPECT_FALSE(thread.stop(100));
    long waited = msSince(begin);
    EXPECT_GE(waited, 95);
    EXPECT_LT(waited, 2000);
    EXPECT_EQ(capture.waitLine("force quit"),
              "<E>DATE [Thread::stop,L#] [stubborn] force quit since wait timeout: 100 ms!!!");
    // The body still runs: starting again only warns.
    EXPECT_TRUE(thread.start(work));
    EXPECT_TRUE(capture.waitFor("[stubborn](", 3000, 2));  // enter and the warning

    work.released = true;
    EXPECT_TRUE(thread.stop(3000));
    EXPECT_TRUE(capture.waitFor(idText(thread) + " thread exit."));
}

TEST(Thread, RunsAnUnnamedThreadAsAnonThreadAndEndsOnQuit) {
    auto& capture = test::LogCapture::fresh();
    class QuittingWork : public Runnable {
      public:
        void run(const Thread& thread) override {
            kernelName = test::threadName(thread.taskId());
            quit();
            while (!isStopped()) Thread::msleep(1);
        }
        std::string kernelName;
    } work;
    Thread thread;
    ASSERT_TRUE(thread.start(work));
    EXPECT_EQ(thread.name(), "AnonThread");
    ASSERT_TRUE(eventually([&] { return !thread.isRunning(); }));
    EXPECT_TRUE(thread.stop(1000));
    EXPECT_EQ(work.kernelName, "AnonThread");
    EXPECT_EQ(capture.waitLine(idText(thread) + " thread exit."),
              "<I>DATE [Thread::operator()] " + idText(thread) + " thread exit.");
    work.quit();  // not running any more: nothing happens
}

TEST(Thread, CutsLongNamesToFifteenCharactersInTheKernel) {
    PoliteWork work;
    Thread thread("a-very-long-thread-name");
    ASSERT_TRUE(thread.start(work));
    ASSERT_TRUE(eventually([&] { return work.runs == 1; }));
    EXPECT_TRUE(thread.stop(1000));
    EXPECT_EQ(work.kernelName, "a-very-long-thr");
    EXPECT_EQ(thread.name(), "a-very-long-thread-name");
}

TEST(Thread, ReportsAnExceptionThatEndedTheRunnable) {
    auto& capture = test::LogCapture::fresh();
    class ThrowingWork : public Runnable {
      public:
        void run(const Thread&) override { throw std::runtime_error("runnable broke"); }
    } work;
    Thread thread("thrower");
    ASSERT_TRUE(thread.start(work));
    ASSERT_TRUE(eventually([&] { return !thread.isRunning(); }));
    EXPECT_FALSE(thread.stop(1000));
    EXPECT_EQ(capture.waitLine("runnable broke"),
              "<E>DATE [Thread::stop,L#] [thrower] thread quit error: runnable broke");
    EXPECT_TRUE(work.isStopped());
    EXPECT_TRUE(capture.matching(idText(thread) + " thread exit.").empty());
    EXPECT_TRUE(thread.stop(100));  // the result was taken
}

TEST(Thread, SleepsAtLeastOneUnit) {
    auto begin = Clock::now();
    Thread::msleep(0);
    Thread::msleep(-5);
    EXPECT_GE(std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin).count(),
              2000);
    begin = Clock::now();
    Thread::usleep(0);
    Thread::usleep(1500);
    EXPECT_GE(std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin).count(),
              1501);
}

TEST(Thread, SetSchedParamReportsEachRefusal) {
    auto& capture = test::LogCapture::fresh();
    // Run on a thread of its own: a successful nice change cannot be undone.
    std::thread([&] {
        SchedParam param;
        param.name = "sched-probe";
        EXPECT_TRUE(Thread::setSchedParam(param));
        EXPECT_EQ(test::threadName(System::getTaskId()), "sched-probe");

        param.policy = 0;
        param.priority = -1;
        EXPECT_FALSE(Thread::setSchedParam(param));
        EXPECT_EQ(capture.waitLine("priority(-1) failed!"),
                  "<E>DATE [setSchedParam,L#] set thread policy(0) priority(-1) failed!");

        // inherit applies only the name.
        param.inherit = 1;
        EXPECT_TRUE(Thread::setSchedParam(param));
        param.inherit = 0;

        // The nice call counts as done only when its result equals the nice
        // value, so a nice value other than 0 reports failure although it was
        // set. (A nice value below the current one would need privileges.)
        int self = System::getTaskId();
        int nice = std::max(10, getpriority(PRIO_PROCESS, static_cast<id_t>(self)));
        param.priority = 20 - nice;
        EXPECT_FALSE(Thread::setSchedParam(param));
        EXPECT_EQ(getpriority(PRIO_PROCESS, static_cast<id_t>(self)), nice);
        EXPECT_EQ(capture.waitLine(StrUtil::format("set nice(%d)", nice)),
                  StrUtil::format("<E>DATE [setSchedParam,L#] Thread::setSchedParam, set "
                                  "nice(%d) error: Success!",
                                  nice));
        EXPECT_EQ(
            capture.waitLine(StrUtil::format("policy(0) priority(%d)", 20 - nice)),
            StrUtil::format("<E>DATE [setSchedParam,L#] set thread policy(0) priority(%d) failed!",
                            20 - nice));

        param.policy = SCHED_FIFO;
        param.priority = 1000;
        EXPECT_FALSE(Thread::setSchedParam(param));
        EXPECT_EQ(capture.waitLine("prio(1000)"),
                  "<E>DATE [setSchedParam,L#] Thread::setSchedParam, set policy(1) prio(1000) "
                  "error: Invalid argument!");
        EXPECT_EQ(capture.waitLine("priority(1000) failed!"),
                  "<E>DATE [setSchedParam,L#] set thread policy(1) priority(1000) failed!");

        // No usable CPU in the list: the affinity call fails.
        param.cpus = {1023, -4, 5000};
        EXPECT_FALSE(Thread::setSchedParam(param));
        EXPECT_EQ(capture.waitLine("set affinity error"),
                  "<E>DATE [setSchedParam,L#] Thread::setAffinity, set affinity error: Invalid "
                  "argument!");

        SchedParam current;
        EXPECT_TRUE(Thread::getSchedParam(&current));
        EXPECT_FALSE(current.cpus.empty());
        EXPECT_EQ(current.policy, SCHED_OTHER);
        EXPECT_EQ(current.name, "sched-probe");
        EXPECT_FALSE(Thread::getSchedParam(nullptr));
    }).join();
}

TEST(Threading, JoinsEveryFunctionAndLogsTheirExceptions) {
    auto& capture = test::LogCapture::fresh();
    std::atomic<int> finished{0};
    {
        Threading group("group");
        group.start([&] {
            Thread::msleep(20);
            ++finished;
        });
        group.start([] { throw std::runtime_error("function broke"); });
        group.start([] { throw 42; });
        group.start(nullptr);
        group.start([&] { ++finished; });
    }
    EXPECT_EQ(finished, 2);
    EXPECT_EQ(capture.waitLine("function broke"),
              "<E>DATE [Threading::~Threading,L#] thread quit error: function broke");
    EXPECT_EQ(capture.waitLine("unknown exception"),
              "<E>DATE [Threading::~Threading,L#] thread quit error: unknown exception");
}

}  // namespace
}  // namespace orvane
