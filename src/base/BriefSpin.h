#pragma once

#include <mutex>
#include <thread>

namespace orvane {
namespace detail {

// Tells the CPU that this is a spin-wait loop (saves power, frees the
// sibling hyper-thread); a no-op where the architecture has no such hint.
// 32-bit ARM has YIELD from ARMv7, and from ARMv6K in ARM state (Thumb-1
// lacks it); plain ARMv6, the baseline of some armhf distributions, has none.
inline void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || (defined(__arm__) && __ARM_ARCH >= 7) ||              \
    (defined(__arm__) && (defined(__ARM_ARCH_6K__) || defined(__ARM_ARCH_6KZ__)) && \
     !defined(__thumb__))
    asm volatile("yield" ::: "memory");
#endif
}

// Locks `mutex` for a holder that keeps it only for a few tens of
// nanoseconds: a caller that finds it taken tries again briefly before it
// sleeps, which is far cheaper than sleeping on the lock and being woken.
// On one core the holder cannot run meanwhile, so there it sleeps at once.
inline std::unique_lock<std::mutex> lockBriefly(std::mutex& mutex) {
    static const int spins = std::thread::hardware_concurrency() > 1 ? 100 : 0;
    std::unique_lock<std::mutex> lock(mutex, std::try_to_lock);
    for (int spin = 0; !lock.owns_lock() && spin < spins; ++spin) {
        cpuRelax();
        lock.try_lock();
    }
    if (!lock.owns_lock()) lock.lock();
    return lock;
}

}  // namespace detail
}  // namespace orvane
