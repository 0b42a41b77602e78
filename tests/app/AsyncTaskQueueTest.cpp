#include <gtest/gtest.h>
#include <orvane/AsyncTaskQueue.h>
#include <orvane/StrUtil.h>
#include <orvane/System.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <set>
#include <thread>

#include "support/Eventually.h"
#include "support/LogCapture.h"
#include "support/ProcTasks.h"

namespace orvane {
namespace {

using test::eventually;

// A task body that blocks until the gate opens, counting who is inside.
struct Gate {
    std::atomic<bool> open{false};
    std::atomic<int> inside{0};
    std::atomic<int> done{0};
    std::mutex mutex;
    std::vector<std::string> names;

    AsyncTaskQueue::Task task() {
        return [this](const std::string& name) {
            ++inside;
            while (!open) Thread::msleep(1);
            {
                std::lock_guard<std::mutex> lock(mutex);
                names.push_back(name);
            }
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

TEST(AsyncTaskQueue, CountsWaitingAndRunningTasksUntilTheyFinish) {
    AsyncTaskQueue queue("counting");
    EXPECT_EQ(queue.idles(), 0);  // no workers yet
    ASSERT_TRUE(queue.init(2, SchedParam()));
    EXPECT_EQ(queue.idles(), 2);
    Gate gate;
    for (int i = 0; i < 5; ++i) queue.putTask(gate.task(), "task" + std::to_string(i));
    EXPECT_EQ(queue.size(), 5);
    EXPECT_EQ(queue.idles(), 0);
    ASSERT_TRUE(eventually([&] { return gate.inside == 2; }));
    EXPECT_EQ(queue.size(), 5);

    gate.open = true;
    ASSERT_TRUE(eventually([&] { return gate.done == 5 && queue.size() == 0; }));
    EXPECT_EQ(queue.idles(), 2);
    // Each task received its own name; FIFO order up to which worker finished first.
    std::sort(gate.names.begin(), gate.names.end());
    EXPECT_EQ(gate.names, (std::vector<std::string>{"task0", "task1", "task2", "task3", "task4"}));
}

TEST(AsyncTaskQueue, RefusesWorkerNumbersBelowOneAndStartsWorkersOnce) {
    auto& capture = test::LogCapture::fresh();
    AsyncTaskQueue queue("refusing");
    EXPECT_FALSE(queue.init(0, SchedParam()));
    EXPECT_EQ(capture.waitLine("invalid worker nums: 0"),
              "<E>DATE [AsyncTaskQueue::init,L#] invalid worker nums: 0");
    EXPECT_FALSE(queue.init(-3, SchedParam()));
    EXPECT_EQ(capture.waitLine("invalid worker nums: -3"),
              "<E>DATE [AsyncTaskQueue::init,L#] invalid worker nums: -3");
    // Not running: tasks are dropped without a word.
    std::atomic<int> ran{0};
    queue.putTask([&](const std::string&) { ++ran; }, "dropped");
    EXPECT_EQ(queue.size(), 0);

    ASSERT_TRUE(queue.init(1, SchedParam()));
    EXPECT_TRUE(queue.init(3, SchedParam()));
    EXPECT_EQ(queue.idles(), 1);
    ASSERT_TRUE(eventually([&] { return threadsNamed("refusing_") == 1; }));
    Thread::msleep(20);
    EXPECT_EQ(threadsNamed("refusing_"), 1u);
    EXPECT_EQ(ran, 0);
}

TEST(AsyncTaskQueue, NamesAnUnnamedQueueAndItsWorkers) {
    AsyncTaskQueue queue("");
    ASSERT_TRUE(queue.init(2, SchedParam()));
    std::mutex mutex;
    std::set<std::pair<int, std::string>> seen;  // task id, kernel name
    std::atomic<int> ran{0};
    Gate gate;
    // Two blocking tasks so that both workers take one.
    for (int i = 0; i < 2; ++i) {
        queue.putTask(
            [&](const std::string& name) {
                int taskId = System::getTaskId();
                {
                    std::lock_guard<std::mutex> lock(mutex);
                    seen.emplace(taskId, test::threadName(taskId));
                }
                gate.task()(name);
                ++ran;
            },
            "probe");
    }
    ASSERT_TRUE(eventually([&] { return gate.inside == 2; }));
    gate.open = true;
    ASSERT_TRUE(eventually([&] { return ran == 2; }));
    ASSERT_EQ(seen.size(), 2u);
    for (auto& entry : seen) {
        // The kernel keeps 15 characters of "ATaskQueue_<task id>".
        EXPECT_EQ(entry.second, StrUtil::format("ATaskQueue_%d", entry.first).substr(0, 15));
    }
}

TEST(AsyncTaskQueue, KeepsCountingTasksWithoutAFunctionUntilCleared) {
    AsyncTaskQueue queue("empties");
    ASSERT_TRUE(queue.init(1, SchedParam()));
    queue.putTask(nullptr, "no function");
    std::atomic<bool> ran{false};
    queue.putTask([&](const std::string&) { ran = true; }, "after it");
    ASSERT_TRUE(eventually([&] { return ran.load() && queue.size() == 1; }));
    EXPECT_EQ(queue.idles(), 0);
    queue.clear();
    EXPECT_EQ(queue.size(), 0);
    EXPECT_EQ(queue.idles(), 1);
    auto none = queue.getTask();  // waits 10 ms and gives up
    EXPECT_TRUE(none.first.empty());
    EXPECT_FALSE(none.second);
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

}  // namespace
}  // namespace orvane
