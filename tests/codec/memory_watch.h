#pragma once
/// @file
/// How much memory a piece of code takes at most.

#include <cstddef>

namespace codectest {

/// Watches the memory that is taken between its construction and `GetPeakBytes`. Counts only in builds with the address
/// sanitizer; elsewhere the peak is 0. One at a time.
class MemoryWatch {
public:
    MemoryWatch();
    ~MemoryWatch();
    size_t GetPeakBytes() const;
};

}  // namespace codectest
