#pragma once

#include <orvane/Export.h>
#include <orvane/Thread.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace orvane {

// A fixed pool of worker threads taking named tasks from one FIFO queue. A
// task receives its own name. Workers are named "<queue name>_<task id>" and
// poll the queue with a 10 ms wait, so shutdown takes up to 10 ms after the
// running tasks end. Tasks put before init() or during destruction are
// dropped silently; waiting tasks are discarded by the destructor. putTask
// may be called from any thread, including from a task.
//
// Behaviour that surprises:
// - An exception thrown by a task ends the worker that ran it, silently. The
//   pool has one worker fewer for good, yet idles() still counts it, and the
//   task stays in size() until clear().
// - An empty task (a Task holding no function) is accepted and counted but
//   never run, so it stays in size() (and keeps idles() one lower) until
//   clear().
// - size() counts waiting and running tasks; after clear() while tasks run,
//   their completion drives it below zero and idles() above the number of
//   workers.
class ORVANE_API AsyncTaskQueue {
  public:
    // A task: called on a worker thread with the name it was queued under.
    using Task = std::function<void(const std::string&)>;

    // A stopped queue called `name`; init() starts its workers.
    explicit AsyncTaskQueue(const std::string& name);
    virtual ~AsyncTaskQueue();
    AsyncTaskQueue(const AsyncTaskQueue&) = delete;
    AsyncTaskQueue& operator=(const AsyncTaskQueue&) = delete;

    // Starts `workers` worker threads with the scheduling `param`; true when already running, false
    // (logged) for fewer than 1 worker or a thread that cannot be started. Owner's thread.
    bool init(int workers, const SchedParam& param);
    // Appends a task and wakes one worker; dropped silently when the queue is
    // not running (before init(), during destruction). Any thread, including
    // a task. Costs a copy of the function object and the name (allocations
    // when they do not fit in place), the queue lock and one notification.
    void putTask(const Task& task, const std::string& name);
    // The same, taking the function object and the name over instead of copying them.
    void putTask(Task&& task, std::string&& name);
    // The first waiting task, waiting at most 10 ms; empty name and function when none came.
    std::pair<std::string, Task> getTask();
    // Drops the waiting tasks; running ones finish. Any thread.
    void clear();
    // Tasks put and not yet finished (waiting plus running); may go negative after clear().
    int size() const { return count.load(); }
    // The workers started less the tasks put and not yet finished, at least 0; a worker
    // that ended with a throwing task still counts. Any thread.
    int idles() const;

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    void worker(SchedParam param);
    void append(std::pair<std::string, Task>&& entry);

    std::string name;
    int workers;
    std::atomic<int> count;
    std::atomic<bool> running;
    std::deque<std::pair<std::string, Task>> tasks;
    std::mutex mutex;
    std::condition_variable condition;
    std::vector<std::future<void>> futures;
};

}  // namespace orvane
