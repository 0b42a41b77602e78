#include <orvane/Coroutine.h>
#include <orvane/Time.h>

#include <new>

#include "support/LogCapture.h"

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#else
#define RUNNING_ON_VALGRIND 0
#endif

namespace orvane {
namespace {

using Lines = std::vector<std::string>;

// A coroutine whose body is a function of the test; it may choose its id.
struct TestCoroutine : Coroutine {
    explicit TestCoroutine(std::function<void(TestCoroutine&)> fn) : body(std::move(fn)) {}
    void routine() override { body(*this); }
    void setId(int newId) { id = newId; }
    std::function<void(TestCoroutine&)> body;
};

// One coroutine's life: it runs to each yield, sleeps by yielding, and is
// replaced by another with its id, which stops itself from inside.
TEST(Coroutine, RunsOneStepPerScheduleUntilReplacedOrStoppedAndRefusesBadInput) {
    auto sched = std::make_unique<CoScheduler>();
    int64_t sleptUs = -1;
    auto co = std::make_shared<TestCoroutine>([&](TestCoroutine& self) {
        Time start = Time::fromMono();
        EXPECT_TRUE(self.yield());
        self.usleep(2000);
        self.msleep(2);
        sleptUs = Time::usSinceMono(start);
    });
    int id = co->coroutineID();
    ASSERT_TRUE(sched->start(co));
    EXPECT_TRUE(sched->schedule(id));
    EXPECT_LT(sleptUs, 0) << "usleep yields";
    for (int i = 0; i < 1000000 && sleptUs < 0; ++i) sched->schedule(id);
    EXPECT_GE(sleptUs, 4000);
    // The body has returned; the coroutine stays, yielding, until it is stopped.
    EXPECT_TRUE(sched->schedule(id));

    bool yieldAfterStop = true;
    auto next = std::make_shared<TestCoroutine>([&](TestCoroutine& self) {
        self.yield();
        EXPECT_FALSE(sched->start(co)) << "from inside a coroutine";
        EXPECT_TRUE(sched->stop(self.coroutineID()));
        yieldAfterStop = self.yield();  // idle now: no switch
    });
    next->setId(id);
    std::weak_ptr<TestCoroutine> watch = next;
    // The scheduler holds the last reference and drops it while `next` runs.
    ASSERT_TRUE(sched->start(std::move(next)));
    EXPECT_EQ(co->state(), Coroutine::kIdle) << "the coroutine it replaced is stopped";
    // Bad input is refused by result alone: the one line is the refused switch.
    auto never = std::make_shared<TestCoroutine>([](TestCoroutine&) {});
    auto logged = test::LogCapture::get().linesDuring([&] {
        EXPECT_TRUE(sched->schedule(id));
        EXPECT_FALSE(sched->start(nullptr));
        EXPECT_FALSE(never->resume() || never->yield());  // never started
        Time before = Time::fromMono();
        never->usleep(60 * 1000 * 1000);
        EXPECT_LT(Time::usSinceMono(before), 30 * 1000 * 1000) << "not running: returns at once";
        never->setId(-7);
        EXPECT_FALSE(sched->start(never) || sched->schedule(-7) || sched->stop(-7));
    });
    EXPECT_EQ(logged,
              Lines{"<E>DATE [CoScheduler::start,L#] cannot switch from inside a coroutine!"});
    EXPECT_FALSE(yieldAfterStop);
    EXPECT_TRUE(watch.expired() && sched->routines() == 0);
}

// A coroutine that fills N bytes of its frame and checks them after every yield.
template <size_t N>
std::shared_ptr<TestCoroutine> stackChecker(int seed, bool& fault) {
    return std::make_shared<TestCoroutine>([seed, &fault](TestCoroutine& self) {
        volatile unsigned char data[N];
        for (size_t i = 0; i < N; ++i) data[i] = static_cast<unsigned char>(i + seed);
        for (int round = 0;; ++round) {
            self.yield();
            for (size_t i = 0; i < N; ++i)
                fault |= data[i]++ != static_cast<unsigned char>(i + seed + round);
        }
    });
}

// Each coroutine resumes over bytes that a deeper or a shallower one left on
// the shared stack: the shallow ones over a deep one's frames, the deep ones
// over the other deep one's data.
TEST(Coroutine, KeepsEachStackIntactAcrossNeighbours) {
    auto sched = std::make_unique<CoScheduler>();
    bool fault = false;
    std::shared_ptr<TestCoroutine> cos[] = {
        stackChecker<64 * 1024>(0, fault), stackChecker<16>(1, fault),
        stackChecker<64 * 1024>(2, fault), stackChecker<16>(3, fault)};
    for (auto& co : cos) ASSERT_TRUE(sched->start(co));
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(sched->schedule(cos[i % 4]->coroutineID()));
    EXPECT_FALSE(fault);
    sched.reset();
    EXPECT_FALSE(cos[0]->resume()) << "stopped with its scheduler";
}

// A coroutine whose frame is larger than the whole shared stack. The scheduler
// sits at the end of a larger block, so the part of the frame below its stack
// lies in memory the test owns; the large array is never written, so the
// scheduler's own fields beneath the stack stay intact.
TEST(Coroutine, RefusesAYieldFromAStackDeeperThanTheSharedOne) {
    // Memcheck marks a popped frame inaccessible, here the scheduler's own
    // fields beneath its stack too, and then reports every later use.
    if (RUNNING_ON_VALGRIND)
        GTEST_SKIP() << "memcheck cannot follow a frame beyond the shared stack";
    constexpr size_t kSlack = 512 * 1024;
    std::unique_ptr<unsigned char[]> block(new unsigned char[kSlack + sizeof(CoScheduler) + 64]);
    auto base = (reinterpret_cast<uintptr_t>(block.get()) + kSlack + 63) & ~uintptr_t(63);
    auto* sched = new (reinterpret_cast<void*>(base)) CoScheduler();
    auto co = std::make_shared<TestCoroutine>([&](TestCoroutine& self) {
        unsigned char beyond[CoScheduler::kStackSize + 128 * 1024];
        asm volatile("" : : "r"(beyond) : "memory");
        EXPECT_FALSE(self.yield());
    });
    auto logged = test::LogCapture::get().linesDuring([&] { EXPECT_TRUE(sched->start(co)); });
    EXPECT_EQ(logged, Lines{"<E>DATE [Coroutine::saveStack,L#] stack overflow at coroutine:" +
                            std::to_string(co->coroutineID())});
    // It went on, returned, and yields normally until it is stopped.
    EXPECT_TRUE(sched->schedule(co->coroutineID()));
    sched->~CoScheduler();
}

}  // namespace
}  // namespace orvane
