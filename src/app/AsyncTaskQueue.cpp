#include <orvane/AsyncTaskQueue.h>
#include <orvane/StrUtil.h>
#include <orvane/System.h>

#include <chrono>

#include "base/BriefSpin.h"
#include "log/LogLine.h"

namespace orvane {

AsyncTaskQueue::AsyncTaskQueue(const std::string& queueName)
    : className("AsyncTaskQueue"), name(queueName), workers(0), count(0), running(false) {}

AsyncTaskQueue::~AsyncTaskQueue() {
    if (running.exchange(false) && workers > 0) {
        for (auto& f : futures) {
            if (f.valid()) f.wait();
        }
    }
}

bool AsyncTaskQueue::init(int workerCount, const SchedParam& param) {
    if (running) return true;
    if (workerCount < 1) {
        ORVANE_ERROR("invalid worker nums: %d", workerCount);
        return false;
    }
    running = true;
    // The workers read the name; settle it before any of them starts.
    if (name.empty()) name = "ATaskQueue";
    futures.reserve(static_cast<size_t>(workerCount));
    for (int i = 0; i < workerCount; ++i) {
        futures.push_back(std::async(std::launch::async, &AsyncTaskQueue::worker, this, param));
    }
    workers = workerCount;
    return true;
}

void AsyncTaskQueue::worker(SchedParam param) {
    param.inherit = 0;
    param.name = StrUtil::format("%s_%d", name.c_str(), System::getTaskId());
    Thread::setSchedParam(param);
    while (running) {
        std::pair<std::string, Task> task = getTask();
        if (!task.second) continue;
        task.second(task.first);
        --count;
    }
}

void AsyncTaskQueue::putTask(const Task& task, const std::string& taskName) {
    if (!running) return;
    // Copied before the lock, so the workers wait only for the move.
    append(std::pair<std::string, Task>(taskName, task));
}

void AsyncTaskQueue::putTask(Task&& task, std::string&& taskName) {
    if (!running) return;
    append(std::pair<std::string, Task>(std::move(taskName), std::move(task)));
}

void AsyncTaskQueue::append(std::pair<std::string, Task>&& entry) {
    {
        // Held for the move into the deque only.
        std::unique_lock<std::mutex> lock = detail::lockBriefly(mutex);
        tasks.push_back(std::move(entry));
    }
    ++count;
    condition.notify_one();
}

std::pair<std::string, AsyncTaskQueue::Task> AsyncTaskQueue::getTask() {
    std::unique_lock<std::mutex> lock = detail::lockBriefly(mutex);
    if (tasks.empty()) {
        // Read the clock only when there is something to wait for: a busy
        // queue hands out tasks without it.
        auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(10);
        while (tasks.empty()) {
            if (condition.wait_until(lock, deadline) == std::cv_status::timeout && tasks.empty()) {
                return {};
            }
        }
    }
    std::pair<std::string, Task> task = std::move(tasks.front());
    tasks.pop_front();
    return task;
}

void AsyncTaskQueue::clear() {
    std::lock_guard<std::mutex> lock(mutex);
    while (!tasks.empty()) tasks.pop_front();
    count = 0;
}

int AsyncTaskQueue::idles() const {
    int busy = count.load();
    return workers > busy ? workers - busy : 0;
}

}  // namespace orvane
