#include <orvane/AsyncTaskQueue.h>
#include <orvane/StrUtil.h>
#include <orvane/System.h>

#include <stdexcept>

#include "support/LogCapture.h"
#include "support/ProcTasks.h"

namespace orvane {
namespace {

// Task bodies that block until the gate opens, noting how many are inside
// and how many ran on a worker not named "ATaskQueue_<task id>" (the kernel
// keeps 15 characters of it).
struct Gate {
    std::atomic<bool> open{false};
    std::atomic<int> inside{0}, done{0}, misnamed{0};

    AsyncTaskQueue::Task task() {
        return [this](const std::string&) {
            ++inside;
            while (!open) Thread::msleep(1);
            int self = System::getTaskId();
            misnamed +=
                test::threadName(self) != StrUtil::format("ATaskQueue_%d", self).substr(0, 15);
            ++done;
        };
    }
};

int threadsNamed(const std::string& prefix) {
    int count = 0;
    for (const std::string& name : test::threadNames()) count += name.rfind(prefix, 0) == 0;
    return count;
}

// Two workers of an unnamed queue take five tasks, then two more while three
// wait; destroying the queue waits for the two and discards the three.
TEST(AsyncTaskQueue, CountsTasksNamesWorkersAndDiscardsWaitingTasksOnDestruction) {
    auto queue = std::make_unique<AsyncTaskQueue>("");
    ASSERT_TRUE(queue->init(2, SchedParam()) && queue->idles() == 2);
    Gate gate;
    for (int i = 0; i < 5; ++i) queue->putTask(gate.task(), "task");
    ASSERT_TRUE(test::eventually([&] { return gate.inside == 2; }));
    EXPECT_EQ(queue->size(), 5);  // running tasks still count
    gate.open = true;
    ASSERT_TRUE(test::eventually([&] { return gate.done == 5 && queue->size() == 0; }));

    gate.open = false;
    std::atomic<int> later{0};
    for (int i = 0; i < 2; ++i) queue->putTask(gate.task(), "running");
    for (int i = 0; i < 3; ++i) queue->putTask([&](const std::string&) { ++later; }, "waiting");
    ASSERT_TRUE(test::eventually([&] { return gate.inside == 7; }));
    std::thread opener([&] {
        Thread::msleep(30);
        gate.open = true;
    });
    queue.reset();
    opener.join();
    EXPECT_EQ(gate.done, 7);  // the running tasks ended before the destructor returned
    EXPECT_EQ(later + gate.misnamed, 0);
    // Joined, but the kernel may list an ending thread a moment longer.
    EXPECT_TRUE(test::eventually([] { return threadsNamed("ATaskQueue_") == 0; }));
}

// A worker ends with a throwing task; an empty task is never run nor finished.
TEST(AsyncTaskQueue, RefusesBadWorkerNumbersAndKeepsTasksThatNeverFinishCountedUntilClear) {
    AsyncTaskQueue queue("throwing");
    test::expectRefusal([&] { return queue.init(0, SchedParam()); },
                        "<E>DATE [AsyncTaskQueue::init,L#] invalid worker nums: 0");
    queue.putTask([](const std::string&) {}, "dropped");  // not running: dropped
    EXPECT_EQ(queue.size(), 0);
    ASSERT_TRUE(queue.init(2, SchedParam()));
    EXPECT_TRUE(queue.init(3, SchedParam()));  // running: starts no more workers
    ASSERT_TRUE(test::eventually([&] { return threadsNamed("throwing_") == 2; }));
    queue.putTask(AsyncTaskQueue::Task(), "empty");
    queue.putTask([](const std::string&) { throw std::runtime_error("task failed"); }, "throws");
    ASSERT_TRUE(test::eventually([&] { return threadsNamed("throwing_") == 1; }));
    std::atomic<int> ran{0};
    queue.putTask([&](const std::string&) { ++ran; }, "after");
    ASSERT_TRUE(test::eventually([&] { return ran == 1 && queue.size() == 2; }));
    EXPECT_EQ(queue.idles(), 0);
    queue.clear();
    EXPECT_TRUE(queue.size() == 0 && queue.idles() == 2);  // the ended worker still counts
}

}  // namespace
}  // namespace orvane
