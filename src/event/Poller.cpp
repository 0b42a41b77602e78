#include <orvane/Poller.h>
#include <sys/epoll.h>

#include <new>

namespace orvane {

Poller::Poller() : className("Poller"), capacity(0), edgeTriggered(false), registered(0) {}

Poller::~Poller() { close(); }

bool Poller::open(int maxEvents, bool edge) {
    std::lock_guard<std::mutex> lock(mutex);
    if (epollFd.isAbove(0)) return true;
    if (maxEvents < 1) return false;
    epollFd.release();  // descriptor 0 counts as not open: it is forgotten, not closed
    epollFd.reset(epoll_create1(EPOLL_CLOEXEC));
    if (!epollFd) return false;
    readyBuffer.reset(new (std::nothrow) epoll_event[static_cast<size_t>(maxEvents)]());
    if (!readyBuffer) {
        // Not left half-open: a later open() tries again.
        epollFd.reset();
        return false;
    }
    edgeTriggered = edge;
    capacity = maxEvents;
    return true;
}

void Poller::close() {
    std::lock_guard<std::mutex> lock(mutex);
    // Descriptor 0 counts as not open: it is forgotten, not closed.
    if (epollFd.isAbove(0)) epollFd.reset();
    epollFd.release();
    readyBuffer.reset();
}

unsigned int Poller::maskOf(int type) const {
    unsigned int mask = 0;
    if (type == 0) {
        mask = EPOLLIN;
    } else if (type == 1) {
        mask = EPOLLOUT;
    } else {
        return 0;
    }
    if (edgeTriggered) mask |= EPOLLET;
    return mask;
}

bool Poller::control(int op, const PollEvent& event) {
    unsigned int mask = maskOf(event.type);
    if (mask == 0) return false;
    epoll_event record{};
    record.events = mask;
    record.data.fd = event.fd;
    return epoll_ctl(epollFd.get(), op, event.fd, &record) == 0;
}

bool Poller::addEvent(const PollEvent& event) {
    std::lock_guard<std::mutex> lock(mutex);
    if (!epollFd || registered >= capacity || event.fd < 0) return false;
    if (!control(EPOLL_CTL_ADD, event)) return false;
    ++registered;
    return true;
}

bool Poller::removeEvent(const PollEvent& event) {
    std::lock_guard<std::mutex> lock(mutex);
    if (!epollFd || registered == 0) return false;
    if (!control(EPOLL_CTL_DEL, event)) return false;
    --registered;
    return true;
}

std::vector<std::shared_ptr<PollEvent>> Poller::waitEvent(int timeoutUs) {
    std::vector<std::shared_ptr<PollEvent>> ready;
    std::lock_guard<std::mutex> lock(mutex);
    if (!epollFd) return ready;
    // Truncates toward zero: -999 .. 999 us poll without blocking.
    int count = epoll_wait(epollFd.get(), readyBuffer.get(), capacity, timeoutUs / 1000);
    if (count <= 0) return ready;
    ready.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        const epoll_event& record = readyBuffer[static_cast<size_t>(i)];
        if (record.events & EPOLLIN) {
            ready.push_back(std::make_shared<PollEvent>(record.data.fd, 0));
        } else if (record.events & EPOLLOUT) {
            ready.push_back(std::make_shared<PollEvent>(record.data.fd, 1));
        }
    }
    return ready;
}

}  // namespace orvane
