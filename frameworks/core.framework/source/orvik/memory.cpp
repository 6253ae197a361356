#include "orvik/memory.h"

#include <cstdlib>
#include <sys/mman.h>

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

/// Asks for large pages under a large block: filling it for the first time then takes about a third of the time. Only
/// whole pages inside the block are named, so it takes no more memory; where the system has no large pages, nothing
/// happens.
void* PreferLargePages(void* block, size_t bytes) noexcept {
    constexpr size_t kLargePage = size_t(2) << 20;
    if (block && bytes >= 2 * kLargePage) [[unlikely]] {
        const auto address = reinterpret_cast<uintptr_t>(block);
        const uintptr_t first = (address + kLargePage - 1) & ~(kLargePage - 1);
        const uintptr_t end = (address + bytes) & ~(kLargePage - 1);
        if (end > first)
            madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
    }
    return block;
}

}  // namespace

void* Allocate(size_t bytes) noexcept {
    return Strikes() ? nullptr : PreferLargePages(std::malloc(bytes ? bytes : 1), bytes);
}

void* AllocateZeroed(size_t bytes) noexcept {
    return Strikes() ? nullptr : PreferLargePages(std::calloc(bytes ? bytes : 1, 1), bytes);
}

void* Reallocate(void* block, size_t bytes) noexcept {
    return Strikes() ? nullptr : PreferLargePages(std::realloc(block, bytes ? bytes : 1), bytes);
}

void Free(void* block) noexcept { std::free(block); }

void SetAllocationFault(Int nthAllocation, bool sticky) noexcept { t_fault = {nthAllocation, sticky, false, 0}; }

Int GetAllocationCount() noexcept { return t_fault.count; }

}  // namespace orvik
