#pragma once
/// @file
/// The allocator of the framework: it reports failure; it never throws and never aborts.

#include <new>

#include "orvik/apibase.h"

namespace orvik {

/// A static object that takes no memory from the heap and is never destroyed, for tables that live as long as the
/// process: `static Immortal<Table> table;`.
template <class T>
class Immortal {
public:
    Immortal() noexcept { new (&_value) T; }
    ~Immortal() {}
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;
    T& operator*() noexcept { return _value; }

private:
    union {
        T _value;
    };
};

/// @return null when memory is short; a block of 0 bytes is a valid block
ORVIK_API void* Allocate(size_t bytes) noexcept;
/// As `Allocate`, filled with zeros. Large blocks are untouched pages, which cost nothing until used.
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
