#include "orvik/lockservices.h"

#include <sched.h>

namespace orvik {

void DefaultCpuYield() { sched_yield(); }

void SpinBackoff(unsigned spins, void (*yield)()) noexcept {
    if (spins % 16 == 15) {
        (yield ? yield : DefaultCpuYield)();
        return;
    }
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

}  // namespace orvik
