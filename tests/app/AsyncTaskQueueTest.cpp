#include <gtest/gtest.h>
#include <orvane/AsyncTaskQueue.h>
#include <orvane/StrUtil.h>
#include <orvane/System.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <set>
#include <stdexcept>
#include <thread>

#include "support/Eventually.h"
#include "support/LogCapture.h"
#include "support/ProcTasks.h"

namespace orvane {
namespace {

using test::eventually;

// Task bodies that block until the gate opens, noting how many are inside,
// the task names and the worker (task id, kernel name) that ran each.
struct Gate {
    std::atomic<bool> open{false};
    std::atomic<int> inside{0}, done{0};
    std::mutex mutex;
    std::vector<std::string> names;
    std::set<std::pair<int, std::string>> workers;

    AsyncTaskQueue::Task task() {
        return [this](const std::string& name) {
            ++inside;
            while (!open) Thread::msleep(1);
            int self = System::getTaskId();
            std::lock_guard<std::mutex> lock(mutex);
            names.push_back(name);
            workers.emplace(self, test::threadName(self));
            ++done;
        };
    }
};

size_t threadsNamed(const std::string& prefix) {
    auto names = test::threadNames();
    return static_cast<size_t>(std::count_if(names.begin(), names.end(), [&](const std::string& n) {
        return n.compare(0, prefix.size(), prefix) == 0;
    }));
}

TEST(AsyncTaskQueue, CountsTasksAndIdleWorkersAndNamesUnnamedWorkers) {
    AsyncTaskQueue queue("");
    EXPECT_EQ(queue.idles(), 0);  // no workers yet
    ASSERT_TRUE(queue.init(2, SchedParam()));
    EXPECT_EQ(queue.idles(), 2);
    Gate gate;
    for (int i = 0; i < 5; ++i) queue.putTask(gate.task(), "task" + std::to_string(i));
    EXPECT_EQ(queue.size(), 5);
    EXPECT_EQ(queue.idles(), 0);
    ASSERT_TRUE(eventually([&] { return gate.inside == 2; }));
    EXPECT_EQ(queue.size(), 5);  // running tasks still count

    gate.open = true;
    ASSERT_TRUE(eventually([&] { return gate.done == 5 && queue.size() == 0; }));
    EXPECT_EQ(queue.idles(), 2);
    std::sort(gate.names.begin(), gate.names.end());
    EXPECT_EQ(gate.names, (std::vector<std::string>{"task0", "task1", "task2", "task3", "task4"}));
    ASSERT_EQ(gate.workers.size(), 2u);
    for (auto& worker : gate.workers) {
        // The kernel keeps 15 characters of "ATaskQueue_<task id>".
        EXPECT_EQ(worker.second, StrUtil::format("ATaskQueue_%d", worker.first).substr(0, 15));
    }
}

TEST(AsyncTaskQueue, RefusesWorkerNumbersBelowOneAndStartsWorkersOnce) {
    auto& capture = test::LogCapture::fresh();
    AsyncTaskQueue queue("refusing");
    for (int bad : {0, -3}) {
        EXPECT_FALSE(queue.init(bad, SchedParam()));
        EXPECT_EQ(
            capture.waitLine(StrUtil::format("invalid worker nums: %d", bad)),
            StrUtil::format("<E>DATE [AsyncTaskQueue::init,L#] invalid worker nums: %d", bad));
    }
    std::atomic<int> ran{0};
    queue.putTask([&](const std::string&) { ++ran; }, "dropped");  // not running: dropped
    EXPECT_EQ(queue.size(), 0);
    ASSERT_TRUE(queue.init(1, SchedParam()));
    EXPECT_TRUE(queue.init(3, SchedParam()));
    EXPECT_EQ(queue.idles(), 1);
    ASSERT_TRUE(eventually([&] { return threadsNamed("refusing_") == 1; }));
    Thread::msleep(20);
    EXPECT_EQ(threadsNamed("refusing_"), 1u);
    EXPECT_EQ(ran, 0);
}

TEST(AsyncTaskQueue, DestructionDiscardsWaitingTasksAfterTheRunningOneEnds) {
    auto queue = std::make_unique<AsyncTaskQueue>("discarding");
    ASSERT_TRUE(queue->init(1, SchedParam()));
    Gate gate;
    std::atomic<int> later{0};
    queue->putTask(gate.task(), "running");
    for (int i = 0; i < 3; ++i) queue->putTask([&](const std::string&) { ++later; }, "waiting");
    ASSERT_TRUE(eventually([&] { return gate.inside == 1; }));
    std::atomic<bool> destroyed{false};
    std::thread destroyer([&] {
        queue.reset();
        destroyed = true;
    });
    Thread::msleep(30);
    EXPECT_FALSE(destroyed);  // waits for the running task
    gate.open = true;
    destroyer.join();
    EXPECT_EQ(gate.done, 1);
    EXPECT_EQ(later, 0);
    EXPECT_EQ(threadsNamed("discarding_"), 0u);
}

TEST(AsyncTaskQueue, AThrowingTaskEndsItsWorkerAndUnfinishedTasksStayCountedUntilClear) {
    AsyncTaskQueue queue("throwing");
    ASSERT_TRUE(queue.init(2, SchedParam()));
    ASSERT_TRUE(eventually([&] { return threadsNamed("throwing_") == 2; }));
    queue.putTask(AsyncTaskQueue::Task(), "empty");
    queue.putTask([](const std::string&) { throw std::runtime_error("task failed"); }, "throws");
    ASSERT_TRUE(eventually([&] { return threadsNamed("throwing_") == 1; }));
    std::atomic<int> ran{0};
    queue.putTask([&](const std::string&) { ++ran; }, "after");
    // The remaining worker runs it; the empty and the throwing task never finish.
    ASSERT_TRUE(eventually([&] { return ran == 1 && queue.size() == 2; }));
    EXPECT_EQ(queue.idles(), 0);
    queue.clear();
    EXPECT_EQ(queue.size(), 0);
    EXPECT_EQ(queue.idles(), 2);  // the ended worker still counts
    EXPECT_EQ(threadsNamed("throwing_"), 1u);
}

}  // namespace
}  // namespace orvane
