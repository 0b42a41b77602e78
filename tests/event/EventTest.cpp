#include <gtest/gtest.h>
#include <orvane/Event.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "event/EventSupport.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

using test::Clock;
using test::msSince;

void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

struct Reading : Event {
    explicit Reading(int v) : value(v) {}
    int value;
};

// Answers a fixed value after an optional delay, counting its calls.
class Answering : public EventListener {
  public:
    explicit Answering(int result, int pauseMs = 0) : answer(result), delayMs(pauseMs) {}
    int onEvent(std::shared_ptr<Event> event) override {
        ++calls;
        last = event;
        if (delayMs > 0) sleepMs(delayMs);
        done = true;
        return answer;
    }
    int answer;
    int delayMs;
    std::atomic<int> calls{0};
    std::atomic<bool> done{false};
    std::shared_ptr<Event> last;
};

TEST(EventDispatcher, FirstListenerToAnswerWins) {
    EventDispatcher dispatcher;
    auto event = std::make_shared<Reading>(42);
    EXPECT_EQ(dispatcher.dispatchEvent(event, 100), -1);  // no listeners
    EXPECT_EQ(dispatcher.dispatchEvent(event, 0), 0);

    Answering passes(-1), five(5), seven(7);
    EXPECT_FALSE(dispatcher.addListener(nullptr));
    EXPECT_FALSE(dispatcher.removeListener(nullptr));
    EXPECT_TRUE(dispatcher.addListener(&passes));
    EXPECT_TRUE(dispatcher.addListener(&five));
    EXPECT_TRUE(dispatcher.addListener(&seven));
    EXPECT_EQ(dispatcher.dispatchEvent(event, 100), 5);
    EXPECT_EQ(passes.calls, 1);
    EXPECT_EQ(five.calls, 1);
    EXPECT_EQ(seven.calls, 0);
    auto seen = std::dynamic_pointer_cast<Reading>(five.last);
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen.get(), event.get());  // the same object, shared
    EXPECT_EQ(seen->value, 42);

    // Removal drops every entry of a listener; a negative timeout has no limit.
    EXPECT_TRUE(dispatcher.addListener(&five));
    EXPECT_TRUE(dispatcher.removeListener(&five));
    EXPECT_EQ(dispatcher.dispatchEvent(nullptr, -1), 7);
    EXPECT_EQ(five.calls, 1);
    EXPECT_EQ(seven.calls, 1);
    EXPECT_EQ(seven.last, nullptr);
    EXPECT_TRUE(dispatcher.removeListener(&seven));
    EXPECT_EQ(dispatcher.dispatchEvent(event, 100), -1);  // nobody handled it
}

TEST(EventDispatcher, TimesOutButReturnsOnlyAfterTheListenersReturned) {
    auto& capture = test::LogCapture::get();
    int threads = test::countTasks();
    EventDispatcher dispatcher;
    Answering slow(3, 150);
    dispatcher.addListener(&slow);
    auto start = Clock::now();
    EXPECT_EQ(dispatcher.dispatchEvent(std::make_shared<Event>(), 30), -2);
    double tookMs = msSince(start);
    EXPECT_TRUE(slow.done);
    EXPECT_GE(tookMs, 145);
    EXPECT_LT(tookMs, 1000);
    EXPECT_EQ(capture.waitLine("send event timeout"),
              "<E>DATE [EventDispatcher::dispatchEvent,L#] send event timeout: 30 ms!");

    // Timeout 0: the answer is 0, but the call still waits for the listener.
    slow.done = false;
    slow.delayMs = 40;
    start = Clock::now();
    EXPECT_EQ(dispatcher.dispatchEvent(std::make_shared<Event>(), 0), 0);
    EXPECT_TRUE(slow.done);
    EXPECT_GE(msSince(start), 38);
    EXPECT_EQ(capture.matching("send event timeout").size(), 1u);
    EXPECT_TRUE(test::waitTaskCount(threads));
}

TEST(EventDispatcher, SerialisesDispatchesAndPassesListenerExceptionsOn) {
    // Listeners of concurrent dispatches never overlap.
    class Overlap : public EventListener {
      public:
        int onEvent(std::shared_ptr<Event>) override {
            int now = ++inside;
            if (now > most) most = now;
            sleepMs(5);
            --inside;
            return 1;
        }
        std::atomic<int> inside{0};
        std::atomic<int> most{0};
    } overlap;
    EventDispatcher dispatcher;
    dispatcher.addListener(&overlap);
    std::thread other([&] {
        for (int i = 0; i < 5; ++i) EXPECT_EQ(dispatcher.dispatchEvent(nullptr, 1000), 1);
    });
    for (int i = 0; i < 5; ++i) EXPECT_EQ(dispatcher.dispatchEvent(nullptr, 1000), 1);
    other.join();
    EXPECT_EQ(overlap.most, 1);

    class Throwing : public EventListener {
      public:
        int onEvent(std::shared_ptr<Event>) override { throw std::runtime_error("bad event"); }
    } throwing;
    EventDispatcher failing;
    failing.addListener(&throwing);
    EXPECT_THROW(failing.dispatchEvent(nullptr, 100), std::runtime_error);
    EXPECT_EQ(failing.dispatchEvent(nullptr, 0), 0);  // dropped with the answer
}

TEST(EventNotifier, RejectsPostsWithoutAWaiterOrWithANegativeNumber) {
    auto& capture = test::LogCapture::get();
    EventNotifier notifier;
    EXPECT_FALSE(notifier.notifyEvent(3));
    EXPECT_EQ(capture.waitLine("no waiting started"),
              "<E>DATE [EventNotifier::notifyEvent,L#] no waiting started!");
    EXPECT_FALSE(notifier.notifyEvent(-1));
    EXPECT_EQ(capture.waitLine("event less than 0"),
              "<E>DATE [EventNotifier::notifyEvent,L#] event less than 0!");
    // The post without a waiter was lost.
    auto start = Clock::now();
    EXPECT_EQ(notifier.waitEvent({3}, 30), -2);
    EXPECT_GE(msSince(start), 29.5);
    EXPECT_TRUE(notifier.clearEvent());
}

TEST(EventNotifier, WaiterSeesAPostWithinOneSliceAndKeepsItUntilCleared) {
    EventNotifier notifier;
    Clock::time_point posted;
    std::thread poster([&] {
        sleepMs(20);
        EXPECT_TRUE(notifier.notifyEvent(7));  // not wanted
        posted = Clock::now();
        EXPECT_TRUE(notifier.notifyEvent(3));
    });
    auto start = Clock::now();
    EXPECT_EQ(notifier.waitEvent({3, 9}, 1000), 3);
    double afterPostMs = msSince(posted);
    poster.join();
    EXPECT_GE(msSince(start), 19);
    EXPECT_LT(afterPostMs, 100);

    // Posted events stay: the next wait finds 3 at once; only clearEvent forgets it.
    start = Clock::now();
    EXPECT_EQ(notifier.waitEvent({3}, 100), 3);
    EXPECT_EQ(notifier.waitEvent({7, 3}, 100), 7);  // first in posting order
    EXPECT_LT(msSince(start), 50);
    EXPECT_EQ(notifier.waitEvent({3}, 0), -2);  // a zero timeout does not look
    notifier.clearEvent();
    start = Clock::now();
    EXPECT_EQ(notifier.waitEvent({3}, 50), -2);
    double waited = msSince(start);
    EXPECT_GE(waited, 49.5);
    EXPECT_LT(waited, 500);
}

}  // namespace
}  // namespace orvane
