#include <orvane/Timer.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>

#include "base/PeriodStart.h"
#include "log/LogLine.h"

namespace orvane {

TimerListener::~TimerListener() = default;

// ---- Timer ------------------------------------------------------------------

Timer::Timer(int periodMs, bool repeatTimer)
    : className("Timer"), start(Time::fromMono()), repeat(false), intervalUs(0), done(false) {
    if (periodMs < 1) {
        done = true;
        return;
    }
    reset(periodMs, repeatTimer);
}

void Timer::reset(int periodMs, bool repeatTimer) {
    if (periodMs >= 1) {
        repeat = repeatTimer;
        intervalUs = static_cast<int64_t>(periodMs) * 1000;
    }
    if (repeat) done = false;
    start = Time::fromMono();
}

bool Timer::checkTimeout(const std::function<void()>& callback) {
    if (done) return true;
    Time now = Time::fromMono();
    int64_t elapsed = (now - start).toMicroSec();
    if (intervalUs > elapsed) return false;
    done = true;
    if (callback) callback();
    if (!repeat) return true;
    start = detail::nextPeriodStart(start, now, intervalUs);
    return true;
}

// ---- TimerManager -----------------------------------------------------------

TimerManager::TimerManager() : className("TimerManager"), thread("TimerManager") {}

TimerManager::~TimerManager() { stop(); }

bool TimerManager::start() { return thread.start(*this); }

bool TimerManager::stop() { return thread.stop(-1); }

bool TimerManager::registerTimer(const Timer& timer, std::function<void()> callback) {
    Timer* key = const_cast<Timer*>(&timer);
    std::lock_guard<std::mutex> lock(mutex);
    if (timers.count(key) != 0) return false;
    key->reset(0, false);
    timers.emplace(key, std::move(callback));
    return true;
}

void TimerManager::unregisterTimer(const Timer& timer) {
    std::lock_guard<std::mutex> lock(mutex);
    timers.erase(const_cast<Timer*>(&timer));
}

void TimerManager::run(const Thread& runner) {
    Rate rate(1000);
    while (runner.isRunning()) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            for (auto& entry : timers) {
                if (entry.first->checkTimeout(entry.second)) entry.first->reset(0, false);
            }
        }
        rate.sleep();
    }
}

// ---- RTimer -----------------------------------------------------------------

RTimer::RTimer(const TimerListener& timerListener, int timerId)
    : RTimer(const_cast<TimerListener*>(&timerListener), timerId) {}

RTimer::RTimer(TimerListener* timerListener, int timerId)
    : className("RTimer"),
      listener(timerListener),
      repeat(false),
      id(timerId),
      intervalUs(0),
      stepUs(1) {}

RTimer::~RTimer() { thread.reset(); }

bool RTimer::start(int periodMs, bool repeatTimer) {
    if (periodMs < 1 || id < 0 || listener == nullptr) {
        ORVANE_ERROR("param error, id:%d, timeout:%d, listener:0x%x", id, periodMs,
                     static_cast<unsigned int>(reinterpret_cast<uintptr_t>(listener)));
        return false;
    }
    // The previous thread reads the settings below: end it first.
    thread.reset();
    repeat = repeatTimer;
    intervalUs = static_cast<int64_t>(periodMs) * 1000;
    if (intervalUs >= 1000100) {
        stepUs = 10000;
    } else if (intervalUs > 99999) {
        stepUs = static_cast<int>(intervalUs / 100);
    } else {
        stepUs = 1000;
    }
    thread = std::make_unique<Thread>("RTimer");
    return thread->start(*this);
}

bool RTimer::stop() {
    if (!thread) return true;
    return thread->stop(-1);
}

void RTimer::run(const Thread& runner) {
    bool first = true;
    Time start;
    while (runner.isRunning()) {
        if (first) {
            start = Time::fromMono();
            first = false;
        } else {
            Time now = Time::fromMono();
            if ((now - start).toMicroSec() >= intervalUs) {
                start = detail::nextPeriodStart(start, now, intervalUs);
                listener->onTimer(id);
                if (!repeat) break;
            }
        }
        Thread::usleep(stepUs);
    }
}

// ---- HRTimer ----------------------------------------------------------------

HRTimer::HRTimer(const TimerListener& timerListener, int timerId)
    : HRTimer(const_cast<TimerListener*>(&timerListener), timerId) {}

HRTimer::HRTimer(TimerListener* timerListener, int timerId)
    : className("HRTimer"),
      thread("HRTimer"),
      listener(timerListener),
      intervalMs(0),
      id(timerId) {}

HRTimer::~HRTimer() { stop(); }

bool HRTimer::start(int periodMs, bool repeatTimer) {
    if (periodMs <= 0 || listener == nullptr) return false;
    if (!timerFd) {
        timerFd.reset(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
        if (!timerFd) return false;
        bool ready = poller.open(1, false);
        if (!ready) {
            ORVANE_ERROR("poller open error!");
        } else if (!(ready = poller.addEvent(PollEvent(timerFd.get(), 0)))) {
            ORVANE_ERROR("poller add event error!");
        }
        if (!ready) {
            // Give the descriptor back so that the next start sets up anew.
            poller.close();
            timerFd.reset();
            return false;
        }
    }
    if (!arm(periodMs, repeatTimer)) return false;
    intervalMs = periodMs;
    return thread.start(*this);
}

bool HRTimer::arm(int periodMs, bool repeatTimer) {
    itimerspec setting{};
    setting.it_value.tv_sec = static_cast<time_t>(periodMs / 1000);
    setting.it_value.tv_nsec = static_cast<long>(periodMs % 1000) * 1000000;
    if (repeatTimer) setting.it_interval = setting.it_value;
    return timerfd_settime(timerFd.get(), 0, &setting, nullptr) == 0;
}

bool HRTimer::stop() {
    if (timerFd.isAbove(0)) {  // descriptor 0 counts as no timer: it is not disarmed
        itimerspec disarmed{};
        timerfd_settime(timerFd.get(), 0, &disarmed, nullptr);
    }
    return thread.stop(-1);
}

void HRTimer::run(const Thread& runner) {
    while (runner.isRunning()) {
        // Microseconds: periods under 10 s poll without blocking.
        for (const auto& event : poller.waitEvent(intervalMs / 10)) {
            uint64_t expiries = 0;
            if (read(event->fd, &expiries, sizeof expiries) == sizeof expiries) {
                listener->onTimer(id);
            }
        }
    }
}

}  // namespace orvane
