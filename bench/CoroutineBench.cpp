// One coroutine round trip (schedule -> resume -> yield -> back) with a
// shallow stack and with a 64 KiB array on the stack, next to the floor of
// the design: a bare swapcontext pair plus copying the same number of bytes
// out and back in.

#include <benchmark/benchmark.h>
#include <orvane/Coroutine.h>
#include <ucontext.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

using orvane::Coroutine;
using orvane::CoScheduler;

constexpr size_t kStack = CoScheduler::kStackSize;
constexpr size_t kDeep = 64 * 1024;

// The frame address of a function called from the caller: just below the
// caller's frame.
__attribute__((noinline)) uintptr_t frameBelow() {
    return reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
}

// saveStack copies the body's depth plus the frames of yield and saveStack
// below it: 64 bytes with GCC 12 and 80 with Clang 14 at -O2 (measured once),
// so the floor never copies less than the coroutine does.
constexpr size_t kYieldFrames = 80;

class Spinner : public Coroutine {
  public:
    Spinner(CoScheduler& owner, bool deepStack) : sched(owner), deep(deepStack) {}
    void routine() override {
        if (deep) {
            deepBody();
        } else {
            shallowBody();
        }
    }

    // Bytes of the shared stack the body uses, as it measured itself.
    size_t depth = 0;

  private:
    __attribute__((noinline)) void shallowBody() {
        measure();
        for (;;) yield();
    }
    __attribute__((noinline)) void deepBody() {
        unsigned char data[kDeep];
        std::memset(data, 1, sizeof data);
        benchmark::DoNotOptimize(data);
        measure();
        for (;;) yield();
    }
    void measure() { depth = reinterpret_cast<uintptr_t>(sched.stack()) + kStack - frameBelow(); }

    CoScheduler& sched;
    bool deep;
};

void roundTrip(benchmark::State& state, bool deep) {
    auto sched = std::make_unique<CoScheduler>();
    auto co = std::make_shared<Spinner>(*sched, deep);
    sched->start(co);
    int id = co->coroutineID();
    for (auto _ : state) sched->schedule(id);
    state.counters["copied"] = static_cast<double>(co->depth + kYieldFrames);
    sched->stop(id);
}

// ---- the floor: swapcontext there and back, copying `bytes` each way --------

struct Floor {
    ucontext_t main{};
    ucontext_t partner{};
    std::vector<unsigned char> partnerStack = std::vector<unsigned char>(kStack);
    // Where the bytes go: with `sameLayout` a scheduler's shared stack and a
    // calloc'ed buffer, as for the coroutine; otherwise two plain vectors.
    // The copies' speed depends on the buffers' relative placement by some
    // 10% on this machine, hence both.
    std::unique_ptr<CoScheduler> scheduler = std::make_unique<CoScheduler>();
    std::unique_ptr<unsigned char, void (*)(void*)> buffer{
        static_cast<unsigned char*>(std::calloc(kStack, 1)), &std::free};
    std::vector<unsigned char> plainStack = std::vector<unsigned char>(kStack);
    std::vector<unsigned char> plainBuffer = std::vector<unsigned char>(kStack);
    unsigned char* stackTop = nullptr;
    unsigned char* saved = nullptr;
    size_t bytes = 0;
};

Floor* current = nullptr;

void partnerLoop() {
    Floor& f = *current;
    for (;;) {
        std::memcpy(f.saved, f.stackTop - f.bytes, f.bytes);
        swapcontext(&f.partner, &f.main);
    }
}

void preparePartner(Floor& f) {
    getcontext(&f.partner);
    f.partner.uc_stack.ss_sp = f.partnerStack.data();
    f.partner.uc_stack.ss_size = kStack;
    f.partner.uc_link = nullptr;
    makecontext(&f.partner, &partnerLoop, 0);
}

void floorPair(benchmark::State& state, bool deep) {
    // Copy as much as the matching coroutine does.
    auto sched = std::make_unique<CoScheduler>();
    auto probe = std::make_shared<Spinner>(*sched, deep);
    sched->start(probe);
    size_t bytes = state.range(0) == 0 ? 0 : probe->depth + kYieldFrames;
    sched->stop(probe->coroutineID());

    auto f = std::make_unique<Floor>();
    f->bytes = bytes;
    bool sameLayout = state.range(0) != 2;
    f->stackTop = sameLayout ? f->scheduler->stack() + kStack : f->plainStack.data() + kStack;
    f->saved = sameLayout ? f->buffer.get() : f->plainBuffer.data();
    current = f.get();
    preparePartner(*f);
    for (auto _ : state) {
        std::memcpy(f->stackTop - f->bytes, f->saved, f->bytes);
        swapcontext(&f->main, &f->partner);
    }
    state.counters["copied"] = static_cast<double>(bytes);
    current = nullptr;
}

void BM_CoroutineShallow(benchmark::State& state) { roundTrip(state, false); }
void BM_CoroutineDeep64K(benchmark::State& state) { roundTrip(state, true); }
void BM_FloorShallow(benchmark::State& state) { floorPair(state, false); }
void BM_FloorDeep64K(benchmark::State& state) { floorPair(state, true); }

}  // namespace

// Arg 0: the swapcontext pair alone; 1: plus the coroutine's copies, in the
// coroutine's memory layout; 2: the same copies between plain vectors.
BENCHMARK(BM_FloorShallow)->Arg(0)->Arg(1)->Arg(2);
BENCHMARK(BM_CoroutineShallow);
BENCHMARK(BM_FloorDeep64K)->Arg(1)->Arg(2);
BENCHMARK(BM_CoroutineDeep64K);

BENCHMARK_MAIN();
