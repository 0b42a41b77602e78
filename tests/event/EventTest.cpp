#include <orvane/Event.h>

#include "event/EventSupport.h"

namespace orvane::test {
namespace {

// Answers a fixed value after an optional pause, counting its calls.
struct Answering : EventListener {
    explicit Answering(int result, int pauseMs = 0) : answer(result), delayMs(pauseMs) {}
    int onEvent(std::shared_ptr<Event>) override { return ++calls, sleepMs(delayMs), answer; }
    int answer, delayMs;
    std::atomic<int> calls{0};
};

TEST(EventDispatcher, FirstAnswerWinsAndTheTimeoutBoundsOnlyTheAnswer) {
    expectNoLeak([] {
        EventDispatcher dispatcher;
        Answering passes(-1), five(5), seven(7), slow(3, 150);
        for (Answering* listener : {&passes, &five, &seven}) dispatcher.addListener(listener);
        EXPECT_EQ(dispatcher.dispatchEvent(std::make_shared<Event>(), 100), 5);
        EXPECT_EQ(passes.calls + seven.calls, 1);  // seven was not asked
        for (Answering* gone : {&five, &seven}) EXPECT_TRUE(dispatcher.removeListener(gone));
        EXPECT_EQ(dispatcher.dispatchEvent(nullptr, -1), -1);  // nobody handled it; no time limit

        dispatcher.addListener(&slow);
        auto start = Clock::now();
        expectRefusal([&] { return dispatcher.dispatchEvent(nullptr, 30) != -2; },
                      "<E>DATE [EventDispatcher::dispatchEvent,L#] send event timeout: 30 ms!");
        EXPECT_GE(msSince(start), 145);  // after the listener returned
    });
}

TEST(EventNotifier, WaiterSeesAPostWithinOneSliceAndKeepsItUntilCleared) {
    EventNotifier notifier;
    expectRefusal([&] { return notifier.notifyEvent(3); },  // nobody waits: dropped
                  "<E>DATE [EventNotifier::notifyEvent,L#] no waiting started!");
    Clock::time_point posted, start = Clock::now();  // before the poster's pause
    std::thread poster([&] {
        sleepMs(20);
        EXPECT_TRUE(notifier.notifyEvent(7));  // not wanted
        EXPECT_TRUE(notifier.notifyEvent((posted = Clock::now(), 3)));
    });
    EXPECT_EQ(notifier.waitEvent({3, 9}, 1000), 3);
    EXPECT_GE(msSince(start), 19);  // the dropped 3 was not found
    poster.join();
    EXPECT_LT(msSince(posted), 100);

    EXPECT_EQ(notifier.waitEvent({7, 3}, 100), 7);  // kept, first in posting order
    notifier.clearEvent();
    start = Clock::now();
    EXPECT_EQ(notifier.waitEvent({3}, 30), -2);
    EXPECT_GE(msSince(start), 29.5);
}

}  // namespace
}  // namespace orvane::test
