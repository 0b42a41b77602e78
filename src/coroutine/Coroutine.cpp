#include <orvane/Coroutine.h>
#include <orvane/Time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>

#include "log/LogLine.h"

// AddressSanitizer builds need three accommodations, all confined to this
// file: the live stack is copied with an unchecked loop (it holds the
// poisoned redzones of live frames), every switch is announced with the fiber
// calls, and switches use getcontext/setcontext instead of swapcontext: the
// sanitizer's swapcontext interceptor would leave a frame below the copied
// stack that the copy cannot preserve.
#if defined(__SANITIZE_ADDRESS__)
#define ORVANE_CO_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORVANE_CO_ASAN 1
#endif
#endif

// ThreadSanitizer keeps a shadow call stack and a clock per thread; it follows
// a switch of stacks only through its fiber calls. Each coroutine is a fiber
// of its own, and every switch names the fiber it goes to.
#if defined(__SANITIZE_THREAD__)
#define ORVANE_CO_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ORVANE_CO_TSAN 1
#endif
#endif

#if defined(ORVANE_CO_TSAN)
#include <sanitizer/tsan_interface.h>
// The switch to a fiber orders everything before it before everything after
// it. A macro, not a function: an instrumented function around it would leave
// its frame on one fiber's shadow call stack and close it on the other's.
#define ORVANE_CO_TSAN_SWITCH(fiber) __tsan_switch_to_fiber((fiber), 0)
#else
#define ORVANE_CO_TSAN_SWITCH(fiber) ((void)0)
#endif

// Under valgrind the shared stack is registered as a stack, so that the
// switches onto it and off it are not taken for one huge frame, and a
// restored stack image is made accessible before it is written.
#if defined(ORVANE_HAVE_VALGRIND_H)
#include <valgrind/memcheck.h>
#include <valgrind/valgrind.h>
#endif

#if defined(ORVANE_CO_ASAN)
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#define ORVANE_CO_UNCHECKED __attribute__((no_sanitize_address))
#else
#define ORVANE_CO_UNCHECKED
#endif

namespace orvane {

namespace {

constexpr size_t kStackSize = CoScheduler::kStackSize;

// Process-wide id source; ids are never reused.
std::atomic<int> nextCoroutineId{0};

// Copies stack bytes; both ends are 16-byte aligned and size is a multiple of 16.
ORVANE_CO_UNCHECKED inline void copyStack(unsigned char* to, const unsigned char* from,
                                          size_t size) {
#if defined(ORVANE_CO_ASAN)
    // Word by word through volatile pointers, so that the compiler cannot turn
    // the loop into a call of the (checked) memcpy.
    auto* dst = reinterpret_cast<volatile uint64_t*>(to);
    auto* src = reinterpret_cast<const volatile uint64_t*>(from);
    for (size_t i = 0; i < size / sizeof(uint64_t); ++i) dst[i] = src[i];
#else
    std::memcpy(to, from, size);
#endif
}

// Announces a switch to the stack [bottom, bottom + size); `fakeStack`
// receives the leaving side's fake stack, nullptr when that side ends.
inline void fiberLeave(void** fakeStack, const void* bottom, size_t size) {
#if defined(ORVANE_CO_ASAN)
    __sanitizer_start_switch_fiber(fakeStack, bottom, size);
#else
    (void)fakeStack;
    (void)bottom;
    (void)size;
#endif
}

// Completes a switch on the arriving side; optionally reports the stack left.
inline void fiberEnter(void* fakeStack, const void** bottomLeft, size_t* sizeLeft) {
#if defined(ORVANE_CO_ASAN)
    __sanitizer_finish_switch_fiber(fakeStack, bottomLeft, sizeLeft);
#else
    (void)fakeStack;
    (void)bottomLeft;
    (void)sizeLeft;
#endif
}

// ThreadSanitizer fibers: the current one, a new one, the end of one. Without
// ThreadSanitizer all are empty.
inline void* tsanCurrentFiber() {
#if defined(ORVANE_CO_TSAN)
    return __tsan_get_current_fiber();
#else
    return nullptr;
#endif
}

inline void tsanDestroyFiber(void* fiber) {
#if defined(ORVANE_CO_TSAN)
    if (fiber != nullptr) __tsan_destroy_fiber(fiber);
#else
    (void)fiber;
#endif
}

inline void tsanRenewFiber(void*& fiber) {
    tsanDestroyFiber(fiber);
#if defined(ORVANE_CO_TSAN)
    fiber = __tsan_create_fiber(0);
#endif
}

// Registers [begin, end) as a stack with valgrind and returns its id; 0 and
// nothing to do without valgrind's headers.
// On a target valgrind does not support, its macros ignore their arguments.
inline unsigned valgrindRegisterStack(unsigned char* begin, unsigned char* end) {
    (void)begin;
    (void)end;
#if defined(ORVANE_HAVE_VALGRIND_H)
    return VALGRIND_STACK_REGISTER(begin, end);
#else
    return 0;
#endif
}

inline void valgrindDeregisterStack(unsigned id) {
    (void)id;
#if defined(ORVANE_HAVE_VALGRIND_H)
    VALGRIND_STACK_DEREGISTER(id);
#endif
}

}  // namespace

// ---- Coroutine --------------------------------------------------------------

Coroutine::Coroutine()
    : className("Coroutine"),
      id(nextCoroutineId.fetch_add(1, std::memory_order_relaxed)),
      scheduler(nullptr),
      context(),
      state_(kIdle),
      savedSize(0),
      saveBuffer(nullptr),
      fakeStack(nullptr),
      tsanFiber(nullptr) {}

// Never runs on its own fiber: a coroutine that stops itself is kept until it
// has switched back.
Coroutine::~Coroutine() { tsanDestroyFiber(tsanFiber); }

// Everything this function and its callers keep across the switch lies above
// the marker in saveStack, so it is part of the copy. Nothing may be written
// to this frame between saveStack() and the switch and read after it.
ORVANE_CO_UNCHECKED bool Coroutine::yield() {
    if (state_ != kRunning || scheduler == nullptr) return false;
#if defined(ORVANE_CO_ASAN)
    volatile bool resumed = false;
    if (getcontext(&context) != 0) {
        int err = errno;
        ORVANE_ERROR("swap context error:%s", strerror(err));
        return false;
    }
    if (resumed) {
        fiberEnter(fakeStack, &scheduler->callerStack, &scheduler->callerStackSize);
        return true;
    }
    resumed = true;
#endif
    if (!saveStack()) return false;
    state_ = kSuspended;
#if defined(ORVANE_CO_ASAN)
    fiberLeave(&fakeStack, scheduler->callerStack, scheduler->callerStackSize);
    setcontext(&scheduler->context_);
    int err = errno;  // setcontext returns only on failure
    fiberEnter(fakeStack, nullptr, nullptr);
#else
    ORVANE_CO_TSAN_SWITCH(scheduler->callerFiber);
    if (swapcontext(&context, &scheduler->context_) == 0) return true;
    int err = errno;
    ORVANE_CO_TSAN_SWITCH(tsanFiber);
#endif
    state_ = kRunning;
    ORVANE_ERROR("swap context error:%s", strerror(err));
    return false;
}

bool Coroutine::resume() {
    if (state_ != kSuspended || scheduler == nullptr) return false;
    // Restoring onto the shared stack from a coroutine would overwrite the caller.
    if (scheduler->onSharedStack(__builtin_frame_address(0))) {
        ORVANE_ERROR("cannot switch from inside a coroutine!");
        return false;
    }
    restoreStack();
    state_ = kRunning;
    int err = scheduler->switchIn(this);
    if (err == 0) return true;
    state_ = kSuspended;
    ORVANE_ERROR("swap context error:%s", strerror(err));
    return false;
}

void Coroutine::usleep(int us) {
    if (us < 1) us = 1;
    Time start = Time::fromMono();
    do {
        if (!yield()) return;
    } while (Time::usSinceMono(start) < us);
}

void Coroutine::msleep(int ms) {
    if (ms < 0) ms = 0;
    usleep(ms > INT_MAX / 1000 ? INT_MAX : ms * 1000);
}

// Not inlined, so that its marker lies below every frame of the coroutine,
// yield() included.
ORVANE_CO_UNCHECKED __attribute__((noinline)) bool Coroutine::saveStack() {
    volatile unsigned char marker = 0;
    const unsigned char* top = scheduler->stack_ + kStackSize;
    // Aligned down to 16 bytes: a few bytes more of this frame, a faster copy.
    uintptr_t from = reinterpret_cast<uintptr_t>(&marker) & ~static_cast<uintptr_t>(15);
    // A marker above the top (not on the shared stack) wraps to a huge size.
    uintptr_t used = reinterpret_cast<uintptr_t>(top) - from;
    if (used > kStackSize) {
        ORVANE_ERROR("stack overflow at coroutine:%d", id);
        return false;
    }
    if (!saveBuffer) {
        // calloc: pages of the buffer that no yield ever reaches cost no memory.
        saveBuffer.reset(static_cast<unsigned char*>(std::calloc(kStackSize, 1)));
        if (!saveBuffer) {
            ORVANE_ERROR("stack buffer alloc error at coroutine:%d", id);
            return false;
        }
    }
    savedSize = static_cast<int>(used);
    copyStack(saveBuffer.get(), reinterpret_cast<const unsigned char*>(from), used);
    return true;
}

void Coroutine::restoreStack() {
    if (!saveBuffer || savedSize <= 0) return;
    unsigned char* to = scheduler->stack_ + kStackSize - savedSize;
#if defined(ORVANE_HAVE_VALGRIND_H)
    // Frames that other coroutines left there were popped; memcheck holds
    // them inaccessible until the image is written back.
    VALGRIND_MAKE_MEM_UNDEFINED(to, savedSize);
#endif
    copyStack(to, saveBuffer.get(), static_cast<size_t>(savedSize));
}

// ---- CoScheduler ------------------------------------------------------------

CoScheduler::CoScheduler()
    : className("CoScheduler"),
      context_(),
      callerStack(nullptr),
      callerStackSize(0),
      callerFiber(nullptr),
      valgrindStackId(0) {
    valgrindStackId = valgrindRegisterStack(stack_, stack_ + kStackSize);
}

CoScheduler::~CoScheduler() {
    for (auto& entry : coroutines) {
        entry.second->state_ = Coroutine::kIdle;
        entry.second->scheduler = nullptr;
    }
    valgrindDeregisterStack(valgrindStackId);
}

bool CoScheduler::start(std::shared_ptr<Coroutine> co) {
    if (!co || co->state_ != Coroutine::kIdle || co->id < 0) return false;
    // A coroutine started from another would run over the caller's frames.
    if (onSharedStack(__builtin_frame_address(0))) {
        ORVANE_ERROR("cannot switch from inside a coroutine!");
        return false;
    }
    int id = co->id;
    stop(id);
    coroutines.emplace(id, co);
    if (getcontext(&co->context) != 0) {
        coroutines.erase(id);
        return false;
    }
    co->scheduler = this;
    co->savedSize = 0;
    co->context.uc_link = &context_;
    co->context.uc_stack.ss_sp = stack_;
    co->context.uc_stack.ss_flags = 0;
    co->context.uc_stack.ss_size = kStackSize;
    makecontext(&co->context, reinterpret_cast<void (*)()>(&CoScheduler::coroutineEntry), 1,
                co.get());
    // A fresh fiber: one left by an earlier run still holds that run's frames.
    tsanRenewFiber(co->tsanFiber);
    int err = switchIn(co.get());
    retired.reset();
    if (err == 0) return true;
    co->state_ = Coroutine::kIdle;
    coroutines.erase(id);
    ORVANE_ERROR("swap context error:%s", strerror(err));
    return false;
}

bool CoScheduler::schedule(int id) {
    auto found = coroutines.find(id);
    if (found == coroutines.end()) return false;
    bool resumed = found->second->resume();
    retired.reset();
    return resumed;
}

bool CoScheduler::stop(int id) {
    auto found = coroutines.find(id);
    if (found == coroutines.end()) return false;
    Coroutine& co = *found->second;
    // A coroutine stopping itself still runs on the shared stack: it is kept
    // until it has switched back (a move, no reference count traffic on the
    // switch path).
    if (co.state_ == Coroutine::kRunning) retired = std::move(found->second);
    co.state_ = Coroutine::kIdle;
    coroutines.erase(found);
    return true;
}

int CoScheduler::routines() const {
    return static_cast<int>(
        std::count_if(coroutines.begin(), coroutines.end(),
                      [](const auto& entry) { return entry.second->state_ != Coroutine::kIdle; }));
}

void CoScheduler::coroutineEntry(void* arg) {
    auto* co = static_cast<Coroutine*>(arg);
    CoScheduler* owner = co->scheduler;
    fiberEnter(co->fakeStack, &owner->callerStack, &owner->callerStackSize);
    co->state_ = Coroutine::kRunning;
    co->routine();
    // A finished body stays registered and keeps yielding until it is stopped.
    while (co->state_ != Coroutine::kIdle) co->usleep(100);
    co->state_ = Coroutine::kIdle;
    // Returning switches to the scheduler through uc_link; this stack is done.
    fiberLeave(nullptr, owner->callerStack, owner->callerStackSize);
#if defined(ORVANE_CO_TSAN)
    // The return itself would close this frame on the scheduler's fiber: the
    // switch goes straight to the scheduler instead, this fiber keeps the frame.
    ORVANE_CO_TSAN_SWITCH(owner->callerFiber);
    setcontext(&owner->context_);
    // setcontext returns only on failure: the return through uc_link remains.
    ORVANE_CO_TSAN_SWITCH(co->tsanFiber);
#endif
}

int CoScheduler::switchIn(Coroutine* co) {
    callerFiber = tsanCurrentFiber();  // where the coroutine switches back to
#if defined(ORVANE_CO_ASAN)
    // Frames of earlier occupants of the shared stack leave poisoned redzones.
    ASAN_UNPOISON_MEMORY_REGION(stack_, kStackSize);
    // Both survive the second return from getcontext in memory.
    volatile bool returned = false;
    void* volatile fake = nullptr;
    if (getcontext(&context_) != 0) return errno;
    if (returned) {
        fiberEnter(fake, nullptr, nullptr);
        return 0;
    }
    returned = true;
    void* leaving = nullptr;
    fiberLeave(&leaving, stack_, kStackSize);
    fake = leaving;
    setcontext(&co->context);
    int err = errno;  // setcontext returns only on failure
    fiberEnter(fake, nullptr, nullptr);
    return err;
#else
    ORVANE_CO_TSAN_SWITCH(co->tsanFiber);
    if (swapcontext(&context_, &co->context) == 0) return 0;
    int err = errno;
    ORVANE_CO_TSAN_SWITCH(callerFiber);
    return err;
#endif
}

bool CoScheduler::onSharedStack(const void* address) const {
    auto at = reinterpret_cast<uintptr_t>(address);
    auto bottom = reinterpret_cast<uintptr_t>(stack_);
    return at >= bottom && at < bottom + kStackSize;
}

}  // namespace orvane
