#include <orvane/EventLoop.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "log/LogLine.h"

namespace orvane {

namespace {

constexpr unsigned kInterestBits = EventLoop::READABLE | EventLoop::WRITABLE;
// The key of the eventfd's registration; sources count from 1.
constexpr uint64_t kWakeKey = 0;
constexpr int kEventsPerWait = 64;

uint32_t epollMask(unsigned interest) {
    uint32_t mask = 0;
    if (interest & EventLoop::READABLE) mask |= EPOLLIN | EPOLLPRI | EPOLLRDHUP;
    if (interest & EventLoop::WRITABLE) mask |= EPOLLOUT;
    return mask;
}

unsigned eventsOf(uint32_t mask) {
    unsigned events = 0;
    if (mask & (EPOLLIN | EPOLLPRI)) events |= EventLoop::READABLE;
    if (mask & EPOLLOUT) events |= EventLoop::WRITABLE;
    if (mask & (EPOLLHUP | EPOLLRDHUP)) events |= EventLoop::HANGUP;
    if (mask & EPOLLERR) events |= EventLoop::ERROR;
    return events;
}

itimerspec spanOf(int firstMs, int periodMs) {
    itimerspec span{};
    span.it_value.tv_sec = firstMs / 1000;
    span.it_value.tv_nsec = static_cast<long>(firstMs % 1000) * 1000000L;
    span.it_interval.tv_sec = periodMs / 1000;
    span.it_interval.tv_nsec = static_cast<long>(periodMs % 1000) * 1000000L;
    return span;
}

}  // namespace

EventLoop::EventLoop(const std::string& loopName) : className("EventLoop"), name(loopName) {
    epollFd.reset(epoll_create1(EPOLL_CLOEXEC));
    if (!epollFd) {
        int err = errno;
        ORVANE_ERROR_IN("EventLoop", "epoll_create1 error: %s", strerror(err));
        return;
    }
    wakeFd.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = kWakeKey;
    if (!wakeFd || epoll_ctl(epollFd.get(), EPOLL_CTL_ADD, wakeFd.get(), &event) != 0) {
        int err = errno;
        ORVANE_ERROR_IN("EventLoop", "eventfd error: %s", strerror(err));
        wakeFd.reset();
    }
}

EventLoop::~EventLoop() { stop(); }

bool EventLoop::isInLoopThread() const {
    return running.load() && loopThread.load() == std::this_thread::get_id();
}

bool EventLoop::apply(std::function<bool()> change) {
    if (isInLoopThread()) return change();
    enqueue([change = std::move(change)] { change(); });
    return true;
}

void EventLoop::enqueue(std::function<void()> fn) {
    bool wasEmpty;
    {
        std::lock_guard<std::mutex> lock(queueMutex);
        wasEmpty = queue.empty();
        queue.push_back(std::move(fn));
    }
    // The loop drains the whole queue per pass, so only the first entry of
    // a batch needs to wake it; its own thread is awake already.
    if (wasEmpty && !isInLoopThread()) wake();
}

void EventLoop::wake() {
    uint64_t one = 1;
    if (wakeFd && ::write(wakeFd.get(), &one, sizeof one) < 0 && errno != EAGAIN) {
        int err = errno;
        ORVANE_ERROR("eventfd write error: %s", strerror(err));
    }
}

bool EventLoop::watch(int fd, unsigned interest, Handler handler) {
    if (fd < 0 || !handler || (interest & ~kInterestBits) != 0) {
        ORVANE_ERROR("bad source: fd %d, interest 0x%X", fd, interest);
        return false;
    }
    return apply([this, fd, interest, handler = std::move(handler)]() mutable {
        return addSource(fd, interest, std::move(handler), 0, "watch");
    });
}

bool EventLoop::modify(int fd, unsigned interest) {
    if (fd < 0 || (interest & ~kInterestBits) != 0) {
        ORVANE_ERROR("bad source: fd %d, interest 0x%X", fd, interest);
        return false;
    }
    return apply([this, fd, interest] {
        auto key = keys.find(fd);
        if (key == keys.end()) {
            ORVANE_ERROR_IN("modify", "fd %d is not watched", fd);
            return false;
        }
        epoll_event event{};
        event.events = epollMask(interest);
        event.data.u64 = key->second;
        if (epoll_ctl(epollFd.get(), EPOLL_CTL_MOD, fd, &event) != 0) {
            int err = errno;
            ORVANE_ERROR_IN("modify", "epoll_ctl(%d) error: %s", fd, strerror(err));
            return false;
        }
        sources_[key->second].interest = interest;
        return true;
    });
}

bool EventLoop::unwatch(int fd) {
    return apply([this, fd] { return removeSource(fd, "unwatch"); });
}

bool EventLoop::addSource(int fd, unsigned interest, Handler handler, int timerId,
                          const char* method) {
    auto known = keys.find(fd);
    epoll_event event{};
    event.events = epollMask(interest);
    event.data.u64 = nextKey;
    int op = known == keys.end() ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
    if (epoll_ctl(epollFd.get(), op, fd, &event) != 0) {
        int err = errno;
        ORVANE_ERROR_IN(method, "epoll_ctl(%d) error: %s", fd, strerror(err));
        return false;
    }
    // A new key per registration: events fetched for the old one are dropped.
    if (known != keys.end()) sources_.erase(known->second);
    keys[fd] = nextKey;
    sources_[nextKey] = Source{fd, interest, std::move(handler), timerId};
    ++nextKey;
    if (timerId == 0 && known == keys.end()) ++sourceCount;
    return true;
}

bool EventLoop::removeSource(int fd, const char* method) {
    auto key = keys.find(fd);
    if (key == keys.end()) {
        ORVANE_ERROR_IN(method, "fd %d is not watched", fd);
        return false;
    }
    if (sources_[key->second].timerId == 0) --sourceCount;
    sources_.erase(key->second);
    keys.erase(key);
    // A descriptor closed already has left the epoll set by itself.
    epoll_ctl(epollFd.get(), EPOLL_CTL_DEL, fd, nullptr);
    return true;
}

int EventLoop::addTimer(int firstMs, int periodMs, std::function<void()> fn) {
    if (firstMs < 1 || periodMs < 0 || !fn) {
        ORVANE_ERROR("bad timer: first %d ms, period %d ms", firstMs, periodMs);
        return -1;
    }
    UniqueFd fd(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    itimerspec span = spanOf(firstMs, periodMs);
    if (!fd || timerfd_settime(fd.get(), 0, &span, nullptr) != 0) {
        int err = errno;
        ORVANE_ERROR("timerfd error: %s", strerror(err));
        return -1;
    }
    int id = nextTimerId++;
    auto timer = std::make_shared<Timer>(Timer{std::move(fd), std::move(fn), periodMs > 0});
    apply([this, id, timer] {
        int timerFd = timer->fd.get();
        timers[id] = std::move(*timer);
        if (!addSource(
                timerFd, READABLE, [this, id](int, unsigned) { fireTimer(id); }, id, "addTimer")) {
            timers.erase(id);
        }
        return true;  // the id is the result
    });
    return id;
}

bool EventLoop::cancelTimer(int timerId) {
    if (timerId < 1 || timerId >= nextTimerId.load()) {
        ORVANE_ERROR("unknown timer %d", timerId);
        return false;
    }
    return apply([this, timerId] {
        auto timer = timers.find(timerId);
        if (timer != timers.end()) {  // else fired once and gone, or cancelled before
            removeSource(timer->second.fd.get(), "cancelTimer");
            timers.erase(timer);
        }
        return true;
    });
}

void EventLoop::fireTimer(int timerId) {
    auto timer = timers.find(timerId);
    if (timer == timers.end()) return;
    uint64_t expiries = 0;
    if (::read(timer->second.fd.get(), &expiries, sizeof expiries) < 0) return;  // spurious
    // Copied out: the function may cancel its own timer.
    std::function<void()> fn = timer->second.fn;
    if (!timer->second.periodic) {
        removeSource(timer->second.fd.get(), "fireTimer");
        timers.erase(timer);
    }
    fn();
}

bool EventLoop::post(std::function<void()> fn) {
    if (!fn) {
        ORVANE_ERROR("empty function");
        return false;
    }
    // Queued on the loop's thread too, so that it runs after the functions
    // posted before.
    enqueue(std::move(fn));
    return true;
}

void EventLoop::runPosted() {
    std::vector<std::function<void()>> batch;
    {
        std::lock_guard<std::mutex> lock(queueMutex);
        batch.swap(queue);
    }
    for (auto& fn : batch) fn();
}

void EventLoop::dispatch(uint64_t key, unsigned events) {
    auto source = sources_.find(key);
    if (source == sources_.end()) return;  // unwatched earlier in this pass
    // Copied: the handler may unwatch (and so destroy) its own registration.
    Handler handler = source->second.handler;
    handler(source->second.fd, events);
}

bool EventLoop::run() {
    if (!isValid()) {
        ORVANE_ERROR("loop is not valid");
        return false;
    }
    if (running.exchange(true)) {
        ORVANE_ERROR("loop is already running");
        return false;
    }
    loop();
    return true;
}

void EventLoop::loop() {
    loopThread = std::this_thread::get_id();
    epoll_event ready[kEventsPerWait];
    runPosted();
    while (!quitRequested.load()) {
        bool morePosted;
        {
            std::lock_guard<std::mutex> lock(queueMutex);
            morePosted = !queue.empty();
        }
        int count = epoll_wait(epollFd.get(), ready, kEventsPerWait, morePosted ? 0 : -1);
        if (count < 0) {
            int err = errno;
            if (err == EINTR) continue;
            ORVANE_ERROR_IN("run", "epoll_wait error: %s", strerror(err));
            break;
        }
        for (int i = 0; i < count && !quitRequested.load(); ++i) {
            if (ready[i].data.u64 == kWakeKey) {
                uint64_t wakes;
                while (::read(wakeFd.get(), &wakes, sizeof wakes) > 0) {
                }
                continue;
            }
            dispatch(ready[i].data.u64, eventsOf(ready[i].events));
        }
        runPosted();
    }
    runPosted();  // what was posted before stop() still runs
    loopThread = std::thread::id();
    running = false;
    quitRequested = false;
}

bool EventLoop::start() {
    std::lock_guard<std::mutex> lock(threadMutex);
    if (thread && !running.load()) thread.reset();  // stopped from its own thread: joined here
    if (!isValid() || thread || running.exchange(true)) {
        ORVANE_ERROR("loop is not valid or already running");
        return false;
    }
    // Claimed as running before the thread exists, so that a run() meanwhile fails.
    thread.reset(new Thread(name));
    if (!thread->start(runner)) {
        thread.reset();
        running = false;
        return false;
    }
    return true;
}

void EventLoop::stop() {
    quitRequested = true;
    wake();
    if (isInLoopThread()) return;
    std::lock_guard<std::mutex> lock(threadMutex);
    if (!thread) return;
    thread->stop(-1);
    thread.reset();
}

}  // namespace orvane
