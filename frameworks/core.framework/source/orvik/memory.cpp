#include "orvik/memory.h"

#include <cstdlib>

namespace orvik {

namespace {

/// The injected fault of a thread; all zero when off.
struct Fault {
    Int countdown;  ///< the allocation that makes this 0 fails
    bool sticky;
    bool struck;  ///< a sticky fault that has struck goes on
    Int count;
};

/// The fast model: the library is linked at program start, so its few thread-local words lie at fixed offsets.
__attribute__((tls_model("initial-exec"))) thread_local Fault t_fault{};

bool Strikes() noexcept {
    ++t_fault.count;
    if (t_fault.struck) [[unlikely]]
        return true;
    if (t_fault.countdown == 0) [[likely]]
        return false;
    if (--t_fault.countdown > 0)
        return false;
    t_fault.struck = t_fault.sticky;
    return true;
}

}  // namespace

void* Allocate(size_t bytes) noexcept { return Strikes() ? nullptr : std::malloc(bytes ? bytes : 1); }

void* AllocateZeroed(size_t bytes) noexcept { return Strikes() ? nullptr : std::calloc(bytes ? bytes : 1, 1); }

void* Reallocate(void* block, size_t bytes) noexcept {
    return Strikes() ? nullptr : std::realloc(block, bytes ? bytes : 1);
}

void Free(void* block) noexcept { std::free(block); }

void SetAllocationFault(Int nthAllocation, bool sticky) noexcept { t_fault = {nthAllocation, sticky, false, 0}; }

Int GetAllocationCount() noexcept { return t_fault.count; }

}  // namespace orvik
