#include <orvane/Thread.h>
#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "log/LogLine.h"
#include "thread/TaskId.h"

namespace orvane {

// ---- Runnable ---------------------------------------------------------------

Runnable::Runnable() : className("Runnable"), runningThread(nullptr) {}

Runnable::~Runnable() = default;

bool Runnable::isStopped() const {
    Thread* runner = runningThread;
    return runner == nullptr || !runner->isRunning();
}

void Runnable::quit() {
    Thread* runner = runningThread;
    if (runner != nullptr) runner->running = false;
}

namespace {

// Waits for a started function and takes its result; true when it ended
// with an exception, whose text goes to *error.
template <class Future>
bool endedWithError(Future& future, std::string* error) {
    try {
        future.get();
        return false;
    } catch (const std::exception& e) {
        *error = e.what();
    } catch (...) {
        *error = "unknown exception";
    }
    return true;
}

}  // namespace

// ---- Thread -----------------------------------------------------------------

Thread::Thread() : Thread(std::string()) {}

Thread::Thread(const std::string& threadName)
    : className("Thread"),
      runnable(nullptr),
      name_(threadName),
      running(false),
      pthreadId(0),
      taskId_(0) {}

Thread::~Thread() {
    // A thread still running here is asked to stop; the future's destructor
    // then waits for the body to return.
    running = false;
}

std::unique_ptr<Thread> Thread::clone() const { return std::make_unique<Thread>(name_); }

bool Thread::isRunning() const { return running.load(); }

bool Thread::start(const Runnable& work) {
    // A body that ignored an earlier stop() still runs although the flag is
    // down; starting over would wait on it for ever, so it counts as started.
    bool bodyLeft =
        future.valid() && future.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
    if (running || bodyLeft) {
        ORVANE_WARN("[%s](%d:0x%x) thread is allready started!", name_.c_str(), taskId_.load(),
                    pthreadId.load());
        return true;
    }
    runnable = const_cast<Runnable*>(&work);
    if (name_.empty()) name_ = "AnonThread";
    // Raised here rather than in the body, so that a stop() issued right after
    // start() cannot be overwritten by a body that starts late.
    running = true;
    try {
        future = std::async(std::launch::async, [this] { return body(); });
    } catch (const std::exception& e) {
        running = false;
        ORVANE_ERROR("[%s] thread start error: %s!", name_.c_str(), e.what());
        return false;
    }
    return true;
}

int Thread::body() {
    taskId_ = detail::currentTaskId();
    pthreadId = static_cast<unsigned int>(pthread_self());
    SchedParam param;
    param.name = name_;
    setSchedParam(param);
    ORVANE_NOTE_IN("operator()", "[%s](%d:0x%x) thread enter.", name_.c_str(), taskId_.load(),
                   pthreadId.load());
    {
        // However run() ends (an exception goes on to stop(), which reports
        // it), the runnable stops pointing at this thread and it stops running.
        struct Leave {
            Thread* thread;
            ~Leave() {
                thread->runnable->runningThread = nullptr;
                thread->running = false;
            }
        } leave{this};
        runnable->runningThread = this;
        runnable->run(*this);
    }
    ORVANE_NOTE_IN("operator()", "[%s](%d:0x%x) thread exit.", name_.c_str(), taskId_.load(),
                   pthreadId.load());
    return 0;
}

bool Thread::stop(int timeoutMs) {
    running = false;
    if (timeoutMs < 1) timeoutMs = 10000;
    if (!future.valid()) return true;
    // Asked from its own body (an application quitting from a signal
    // callback): the body ends once run() returns; waiting here would only
    // wait for itself.
    if (taskId_.load() == detail::currentTaskId()) return true;
    if (future.wait_for(std::chrono::milliseconds(timeoutMs)) != std::future_status::ready) {
        ORVANE_ERROR("[%s] force quit since wait timeout: %d ms!!!", name_.c_str(), timeoutMs);
        return false;
    }
    std::string error;
    if (endedWithError(future, &error)) {
        ORVANE_ERROR("[%s] thread quit error: %s", name_.c_str(), error.c_str());
        return false;
    }
    return true;
}

namespace {

void sleepFor(timespec request) {
    timespec remaining{};
    while (nanosleep(&request, &remaining) != 0 && errno == EINTR) request = remaining;
}

}  // namespace

void Thread::usleep(int us) {
    if (us < 1) us = 1;
    sleepFor(timespec{us / 1000000, static_cast<long>(us % 1000000) * 1000});
}

void Thread::msleep(int ms) {
    if (ms < 1) ms = 1;
    sleepFor(timespec{ms / 1000, static_cast<long>(ms % 1000) * 1000000});
}

bool Thread::setSchedParam(const SchedParam& param) {
    if (!param.name.empty()) prctl(PR_SET_NAME, param.name.c_str(), 0, 0, 0);
    if (param.inherit != 0) return true;
    if (!param.cpus.empty()) {
        cpu_set_t set;
        CPU_ZERO(&set);
        for (int cpu : param.cpus) {
            if (cpu >= 0 && cpu < 1024) CPU_SET(static_cast<size_t>(cpu), &set);
        }
        int err = pthread_setaffinity_np(pthread_self(), sizeof set, &set);
        if (err != 0) {
            ORVANE_SERROR("Thread::setAffinity, set affinity error: %s!", strerror(err));
            return false;
        }
    }
    if (param.policy == 255) return true;
    if (param.priority < 0) {
        ORVANE_SERROR("set thread policy(%d) priority(%d) failed!", param.policy, param.priority);
        return false;
    }
    if (param.policy == 0) {
        int nice = 20 - param.priority;
        errno = 0;
        // PRIO_PROCESS with a task id addresses just this thread on Linux.
        int result = setpriority(PRIO_PROCESS, static_cast<id_t>(detail::currentTaskId()), nice);
        int err = errno;
        // Success only when the result equals the nice value and errno stays 0.
        if (result != nice || err != 0) {
            ORVANE_SERROR("Thread::setSchedParam, set nice(%d) error: %s!", nice, strerror(err));
            ORVANE_SERROR("set thread policy(%d) priority(%d) failed!", param.policy,
                          param.priority);
            return false;
        }
        return true;
    }
    sched_param sched{};
    sched.sched_priority = param.priority;
    int err = pthread_setschedparam(pthread_self(), param.policy, &sched);
    if (err != 0) {
        ORVANE_SERROR("Thread::setSchedParam, set policy(%d) prio(%d) error: %s!", param.policy,
                      param.priority, strerror(err));
        ORVANE_SERROR("set thread policy(%d) priority(%d) failed!", param.policy, param.priority);
        return false;
    }
    return true;
}

bool Thread::getSchedParam(SchedParam* param) {
    if (param == nullptr) return false;
    pthread_t self = pthread_self();
    cpu_set_t set;
    CPU_ZERO(&set);
    int err = pthread_getaffinity_np(self, sizeof set, &set);
    if (err != 0) {
        ORVANE_SERROR("Thread::getSchedParam, get affinity error: %s!", strerror(err));
        return false;
    }
    param->cpus.clear();
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(static_cast<size_t>(cpu), &set)) param->cpus.push_back(cpu);
    }
    pthread_attr_t attr;
    err = pthread_getattr_np(self, &attr);
    if (err != 0) {
        ORVANE_SERROR("Thread::getSchedParam, get attribute error: %s!", strerror(err));
        return false;
    }
    int inherit = 0;
    err = pthread_attr_getinheritsched(&attr, &inherit);
    pthread_attr_destroy(&attr);
    if (err != 0) {
        ORVANE_SERROR("Thread::getSchedParam, get inherit error: %s!", strerror(err));
        return false;
    }
    int policy = 0;
    sched_param sched{};
    err = pthread_getschedparam(self, &policy, &sched);
    if (err != 0) {
        ORVANE_SERROR("Thread::getSchedParam, get shced param error: %s!", strerror(err));
        return false;
    }
    char threadName[17] = {};
    prctl(PR_GET_NAME, threadName, 0, 0, 0);
    param->inherit = inherit == PTHREAD_INHERIT_SCHED ? 1 : 0;
    param->policy = policy;
    param->priority = sched.sched_priority;
    param->name = threadName;
    return true;
}

// ---- Threading --------------------------------------------------------------

void Threading::start(std::function<void()> fn) {
    if (!fn) return;
    try {
        futures.push_back(std::async(std::launch::async, std::move(fn)));
    } catch (const std::exception& e) {
        ORVANE_ERROR("[%s] thread start error: %s!", name.c_str(), e.what());
    }
}

Threading::~Threading() {
    for (auto& f : futures) {
        std::string error;
        if (endedWithError(f, &error)) ORVANE_ERROR("thread quit error: %s", error.c_str());
    }
}

}  // namespace orvane
