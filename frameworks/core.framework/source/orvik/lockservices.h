#pragma once
/// @file
/// Spin locks for the few short critical sections of the system.

#include <atomic>

#include "orvik/apibase.h"

/// The module's writable slot for the host's yield function; see `module.h`.
extern "C" void (*g_CpuYieldDelegate)();

namespace orvik {

/// Gives up the processor after every 16th unsuccessful spin.
/// @param spins  how often the caller has tried
/// @param yield  what to call; null means the framework's own default
ORVIK_API void SpinBackoff(unsigned spins, void (*yield)()) noexcept;

/// The framework's yield function, which a host puts into the modules' slots.
ORVIK_API void DefaultCpuYield();

/// Inside a module spinning code yields through the module's slot, elsewhere through the framework's default.
#ifdef ORVIK_MODULE
inline void CpuBackoff(unsigned spins) noexcept { SpinBackoff(spins, g_CpuYieldDelegate); }
#else
inline void CpuBackoff(unsigned spins) noexcept { SpinBackoff(spins, nullptr); }
#endif

/// A 32-bit word that is 0 when free and 1 when held. Works with `std::lock_guard`.
class SpinLock {
public:
    bool try_lock() noexcept {
        uint32_t expected = 0;
        return _word.compare_exchange_strong(expected, 1, std::memory_order_acquire, std::memory_order_relaxed);
    }
    void lock() noexcept {
        for (unsigned spins = 0; !try_lock(); ++spins)
            CpuBackoff(spins);
    }
    void unlock() noexcept { _word.store(0, std::memory_order_release); }

private:
    std::atomic<uint32_t> _word{0};
};

}  // namespace orvik
