#pragma once
/// @file
/// The process-wide bound on a single decoded buffer: what keeps a header of sixty bytes from asking for the machine.

#include <atomic>
#include <unistd.h>

#include "orvik/errortypes.h"

namespace orvik {

/// The bound in bytes; 0 until it is set.
inline std::atomic<Int> g_decodeBufferLimit{0};

/// Largest single buffer of decoded pixels, in bytes. Half of the machine's memory unless it was set.
inline Int GetDecodeBufferLimit() {
    if (const Int limit = g_decodeBufferLimit.load(std::memory_order_relaxed); limit > 0)
        return limit;
    constexpr Int kWhenUnknown = Int(1) << 30;
    const Int pages = sysconf(_SC_PHYS_PAGES), pageBytes = sysconf(_SC_PAGE_SIZE);
    return pages > 0 && pageBytes > 0 ? pages / 2 * pageBytes : kWhenUnknown;
}

/// @param bytes  the new bound; 0 and below restore the default
inline void SetDecodeBufferLimit(Int bytes) { g_decodeBufferLimit.store(bytes, std::memory_order_relaxed); }

/// Out of memory for a buffer above the bound, and for a negative size.
inline Result<void> CheckDecodeBuffer(Int bytes) {
    if (bytes < 0 || bytes > GetDecodeBufferLimit())
        return OutOfMemoryError();
    return {};
}

}  // namespace orvik
