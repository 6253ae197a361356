#pragma once
/// @file
/// The allocator of the framework: it can fail and says so; it never throws and never aborts.

#include "orvik/apibase.h"

namespace orvik {

/// @return null when memory is short; a block of 0 bytes is a valid block
ORVIK_API void* Allocate(size_t bytes) noexcept;
/// As `Allocate`, filled with zeros. Large blocks come as untouched pages, which cost nothing until used.
ORVIK_API void* AllocateZeroed(size_t bytes) noexcept;
/// Grows or shrinks a block and keeps its content; on failure the old block stays valid.
ORVIK_API void* Reallocate(void* block, size_t bytes) noexcept;
ORVIK_API void Free(void* block) noexcept;

/// For tests: lets the n-th allocation from now on this thread fail (1 is the next), and those after it if `sticky`.
/// 0 switches it off.
ORVIK_API void SetAllocationFault(Int nthAllocation, bool sticky = false) noexcept;
/// For tests: allocations made on this thread since the last `SetAllocationFault`.
ORVIK_API Int GetAllocationCount() noexcept;

}  // namespace orvik
