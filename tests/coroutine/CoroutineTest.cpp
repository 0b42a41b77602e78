#include <gtest/gtest.h>
#include <orvane/Coroutine.h>
#include <orvane/Time.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "log/LogLine.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

constexpr size_t kStack = CoScheduler::kStackSize;

// A coroutine whose body is a function of the test.
class TestCoroutine : public Coroutine {
  public:
    explicit TestCoroutine(std::function<void(TestCoroutine&)> fn) : body(std::move(fn)) {}
    ~TestCoroutine() override { ++destroyed; }

    void routine() override { body(*this); }
    // Derived coroutines may choose their id.
    void setId(int newId) { id = newId; }

    static int destroyed;

  private:
    std::function<void(TestCoroutine&)> body;
};

int TestCoroutine::destroyed = 0;

std::shared_ptr<TestCoroutine> makeCo(std::function<void(TestCoroutine&)> fn) {
    return std::make_shared<TestCoroutine>(std::move(fn));
}

// Lines containing `text` so far: first a unique line is logged and awaited,
// so that every line logged before it has been delivered.
size_t linesWith(const std::string& text) {
    static int serial = 0;
    std::string mark = "sentinel " + std::to_string(++serial);
    ORVANE_SERROR("%s", mark.c_str());
    EXPECT_TRUE(test::LogCapture::get().waitFor(mark));
    return test::LogCapture::get().matching(text).size();
}

bool onStack(CoScheduler& sched, const void* address) {
    auto at = reinterpret_cast<uintptr_t>(address);
    auto bottom = reinterpret_cast<uintptr_t>(sched.stack());
    return at >= bottom && at < bottom + kStack;
}

TEST(Coroutine, RunsToFirstYieldOnStartAndOneStepPerSchedule) {
    auto sched = std::make_unique<CoScheduler>();
    std::vector<int> trace;
    bool onShared = false;
    auto co = makeCo([&](TestCoroutine& self) {
        onShared = onStack(*sched, __builtin_frame_address(0));
        trace.push_back(1);
        EXPECT_TRUE(self.yield());
        trace.push_back(2);
        EXPECT_TRUE(self.yield());
        trace.push_back(3);
    });
    int id = co->coroutineID();
    EXPECT_EQ(co->state(), Coroutine::kIdle);
    EXPECT_FALSE(co->isRunning());

    ASSERT_TRUE(sched->start(co));
    EXPECT_TRUE(onShared);
    EXPECT_EQ(trace, (std::vector<int>{1}));
    EXPECT_EQ(co->state(), Coroutine::kSuspended);
    EXPECT_TRUE(co->isRunning());
    EXPECT_EQ(sched->routines(), 1);
    EXPECT_FALSE(sched->start(co)) << "a suspended coroutine cannot be started";

    EXPECT_TRUE(sched->schedule(id));
    EXPECT_EQ(trace, (std::vector<int>{1, 2}));
    EXPECT_TRUE(sched->schedule(id));
    EXPECT_EQ(trace, (std::vector<int>{1, 2, 3}));
    // The body has returned; the coroutine keeps yielding until stopped.
    EXPECT_EQ(co->state(), Coroutine::kSuspended);
    EXPECT_EQ(sched->routines(), 1);
    EXPECT_TRUE(sched->schedule(id));
    EXPECT_EQ(trace.size(), 3u);

    EXPECT_TRUE(sched->stop(id));
    EXPECT_EQ(co->state(), Coroutine::kIdle);
    EXPECT_EQ(sched->routines(), 0);
    EXPECT_FALSE(sched->schedule(id));
    EXPECT_FALSE(sched->stop(id));
    EXPECT_FALSE(co->resume());

    // Idle again, it can be started again, from the beginning.
    ASSERT_TRUE(sched->start(co));
    EXPECT_EQ(trace, (std::vector<int>{1, 2, 3, 1}));
    EXPECT_TRUE(sched->stop(id));
}

TEST(Coroutine, KeepsEachStackIntactAcrossDeepAndShallowNeighbours) {
    auto sched = std::make_unique<CoScheduler>();
    constexpr int kRounds = 25;
    constexpr size_t kDeep = 64 * 1024;
    std::vector<std::string> faults;
    std::vector<int> progress(4, 0);

    auto deep = [&](int slot) {
        return makeCo([&, slot](TestCoroutine& self) {
            unsigned char data[kDeep];
            for (size_t i = 0; i < kDeep; ++i) data[i] = static_cast<unsigned char>(i + slot);
            // The frame is on the shared stack (sanitizer builds may move the array).
            if (!onStack(*sched, __builtin_frame_address(0))) faults.push_back("off stack");
            for (int round = 0; round < kRounds; ++round) {
                self.yield();
                for (size_t i = 0; i < kDeep; ++i) {
                    if (data[i]++ != static_cast<unsigned char>(i + slot + round)) {
                        faults.push_back("deep " + std::to_string(slot));
                        break;
                    }
                }
                progress[slot] = round + 1;
            }
        });
    };
    auto shallow = [&](int slot) {
        return makeCo([&, slot](TestCoroutine& self) {
            volatile int counter = slot * 1000;
            for (int round = 0; round < kRounds; ++round) {
                self.yield();
                if (counter++ != slot * 1000 + round) faults.push_back("shallow");
                progress[slot] = round + 1;
            }
        });
    };
    std::vector<std::shared_ptr<TestCoroutine>> cos = {deep(0), shallow(1), deep(2), shallow(3)};
    for (auto& co : cos) ASSERT_TRUE(sched->start(co));
    EXPECT_EQ(sched->routines(), 4);

    // Interleave in changing orders, so every coroutine resumes over stack
    // bytes left by a deeper or a shallower neighbour.
    const int orders[3][4] = {{0, 1, 2, 3}, {3, 2, 1, 0}, {1, 3, 0, 2}};
    for (int round = 0; round < kRounds; ++round) {
        for (int slot : orders[round % 3]) EXPECT_TRUE(sched->schedule(cos[slot]->coroutineID()));
    }
    EXPECT_EQ(faults, std::vector<std::string>{});
    EXPECT_EQ(progress, (std::vector<int>{kRounds, kRounds, kRounds, kRounds}));
    for (auto& co : cos) EXPECT_TRUE(sched->stop(co->coroutineID()));
    EXPECT_EQ(sched->routines(), 0);
}

TEST(Coroutine, ReplacesAnEntryWithTheSameIdAndRefusesBadIds) {
    size_t linesBefore = linesWith("[Co");
    auto sched = std::make_unique<CoScheduler>();
    auto first = makeCo([](TestCoroutine&) {});
    auto second = makeCo([](TestCoroutine&) {});
    auto third = makeCo([](TestCoroutine&) {});
    EXPECT_LT(first->coroutineID(), second->coroutineID()) << "ids come from a counter";
    EXPECT_LT(second->coroutineID(), third->coroutineID());

    ASSERT_TRUE(sched->start(first));
    second->setId(first->coroutineID());
    ASSERT_TRUE(sched->start(second));
    EXPECT_EQ(first->state(), Coroutine::kIdle) << "the replaced coroutine is stopped";
    EXPECT_EQ(second->state(), Coroutine::kSuspended);
    EXPECT_EQ(sched->routines(), 1);
    EXPECT_TRUE(sched->stop(first->coroutineID()));
    EXPECT_EQ(second->state(), Coroutine::kIdle);

    // Negative ids, empty pointers, unknown ids: refused, nothing logged.
    third->setId(-7);
    EXPECT_FALSE(sched->start(third));
    EXPECT_EQ(third->state(), Coroutine::kIdle);
    EXPECT_FALSE(sched->start(nullptr));
    EXPECT_FALSE(sched->schedule(-7));
    EXPECT_FALSE(sched->stop(-7));
    EXPECT_EQ(sched->routines(), 0);

    // A coroutine never started: nothing to stop, resume or yield.
    auto never = makeCo([](TestCoroutine&) {});
    EXPECT_FALSE(sched->stop(never->coroutineID()));
    EXPECT_FALSE(never->resume());
    EXPECT_FALSE(never->yield());
    Time before = Time::fromMono();
    never->usleep(5 * 1000 * 1000);  // not running: returns at once
    EXPECT_LT(Time::usSinceMono(before), 1000 * 1000);
    EXPECT_EQ(never->state(), Coroutine::kIdle);
    EXPECT_EQ(linesWith("[Co"), linesBefore);
}

TEST(Coroutine, SleepsByYieldingUntilTheTimeHasPassed) {
    auto sched = std::make_unique<CoScheduler>();
    int stage = 0;
    int64_t sleptUs = 0;
    auto co = makeCo([&](TestCoroutine& self) {
        self.usleep(0);  // yields at least once
        stage = 1;
        Time start = Time::fromMono();
        self.usleep(3000);
        sleptUs = Time::usSinceMono(start);
        stage = 2;
        self.msleep(2);
        stage = 3;
    });
    ASSERT_TRUE(sched->start(co));
    EXPECT_EQ(stage, 0);
    int schedules = 0;
    while (stage < 3 && schedules < 1000000) {
        sched->schedule(co->coroutineID());
        ++schedules;
    }
    EXPECT_EQ(stage, 3);
    EXPECT_GE(sleptUs, 3000);
    EXPECT_GE(schedules, 3);
    // Finished, it still yields every 100 us inside its entry.
    EXPECT_EQ(sched->routines(), 1);
    EXPECT_TRUE(sched->schedule(co->coroutineID()));
    EXPECT_TRUE(sched->stop(co->coroutineID()));
}

TEST(Coroutine, RefusesSwitchesFromInsideACoroutine) {
    auto sched = std::make_unique<CoScheduler>();
    auto other = makeCo([](TestCoroutine& self) {
        for (;;) self.yield();
    });
    ASSERT_TRUE(sched->start(other));
    bool startSelf = true, startNew = true, scheduleOther = true;
    std::shared_ptr<TestCoroutine> co;
    co = makeCo([&](TestCoroutine& self) {
        startSelf = sched->start(co);  // running: refused silently
        startNew = sched->start(makeCo([](TestCoroutine&) {}));
        scheduleOther = sched->schedule(other->coroutineID());
        self.yield();
    });
    ASSERT_TRUE(sched->start(co));
    EXPECT_FALSE(startSelf);
    EXPECT_FALSE(startNew);
    EXPECT_FALSE(scheduleOther);
    auto& capture = test::LogCapture::get();
    EXPECT_EQ(capture.waitLine("[CoScheduler::start"),
              "<E>DATE [CoScheduler::start,L#] cannot switch from inside a coroutine!");
    EXPECT_EQ(capture.waitLine("[Coroutine::resume"),
              "<E>DATE [Coroutine::resume,L#] cannot switch from inside a coroutine!");
    EXPECT_EQ(other->state(), Coroutine::kSuspended);
    EXPECT_EQ(sched->routines(), 2);
    EXPECT_TRUE(sched->schedule(other->coroutineID()));
}

TEST(Coroutine, StopsItselfSafelyAndSchedulerDestructionStopsTheRest) {
    TestCoroutine::destroyed = 0;
    auto sched = std::make_unique<CoScheduler>();
    bool afterStop = false;
    bool yieldAfterStop = true;
    int selfId = -1;
    {
        auto co = makeCo([&](TestCoroutine& self) {
            self.yield();
            EXPECT_TRUE(sched->stop(self.coroutineID()));
            yieldAfterStop = self.yield();  // idle now: no switch
            afterStop = true;
        });
        selfId = co->coroutineID();
        ASSERT_TRUE(sched->start(co));
    }
    // The scheduler holds the only reference; the coroutine drops it while running.
    EXPECT_EQ(TestCoroutine::destroyed, 0);
    EXPECT_TRUE(sched->schedule(selfId));
    EXPECT_TRUE(afterStop);
    EXPECT_FALSE(yieldAfterStop);
    EXPECT_EQ(TestCoroutine::destroyed, 1);
    EXPECT_EQ(sched->routines(), 0);

    auto kept = makeCo([](TestCoroutine& self) {
        for (;;) self.yield();
    });
    ASSERT_TRUE(sched->start(kept));
    sched.reset();
    EXPECT_EQ(kept->state(), Coroutine::kIdle);
    EXPECT_FALSE(kept->resume());
}

// Yields from a frame larger than the whole shared stack, without writing it.
__attribute__((noinline)) bool yieldBeyondTheStack(Coroutine& co) {
    unsigned char beyond[kStack + 128 * 1024];
    asm volatile("" : : "r"(beyond) : "memory");
    return co.yield();
}

// A coroutine whose stack grows past the 1 MiB shared stack. The scheduler is
// placed at the end of a larger block, so the frames below the shared stack
// land in memory the test owns; the overlong frame is never written, so the
// scheduler's own fields beneath it stay intact.
TEST(Coroutine, RefusesAYieldFromAStackDeeperThanTheSharedOne) {
    constexpr size_t kSlack = 512 * 1024;
    std::unique_ptr<unsigned char[]> block(new unsigned char[kSlack + sizeof(CoScheduler) + 64]);
    auto base = (reinterpret_cast<uintptr_t>(block.get()) + kSlack + 63) & ~uintptr_t(63);
    auto* sched = new (reinterpret_cast<void*>(base)) CoScheduler();

    bool deepYield = true;
    bool continued = false;
    auto co = makeCo([&](TestCoroutine& self) {
        if (self.yield()) {
            // Reached only through schedule() below: overflow by 128 KiB.
            deepYield = yieldBeyondTheStack(self);
            continued = true;
        }
    });
    ASSERT_TRUE(sched->start(co));
    EXPECT_TRUE(sched->schedule(co->coroutineID()));
    EXPECT_FALSE(deepYield);
    EXPECT_TRUE(continued);
    EXPECT_EQ(co->state(), Coroutine::kSuspended);
    std::string line = "stack overflow at coroutine:" + std::to_string(co->coroutineID());
    EXPECT_EQ(test::LogCapture::get().waitLine(line), "<E>DATE [Coroutine::saveStack,L#] " + line);
    EXPECT_EQ(linesWith(line), 1u);

    // Still fully usable.
    EXPECT_TRUE(sched->schedule(co->coroutineID()));
    EXPECT_TRUE(sched->stop(co->coroutineID()));
    EXPECT_EQ(sched->routines(), 0);
    sched->~CoScheduler();
}

}  // namespace
}  // namespace orvane
