#include "orvik/mediasession_limits.h"

#include <atomic>
#include <unistd.h>

namespace orvik {

namespace {

std::atomic<Int> g_limit{0};  ///< 0 until it is set

}  // namespace

Int GetDecodeBufferLimit() noexcept {
    if (const Int limit = g_limit.load(std::memory_order_relaxed); limit > 0)
        return limit;
    constexpr Int kWhenUnknown = Int(1) << 30;
    const Int pages = sysconf(_SC_PHYS_PAGES), pageBytes = sysconf(_SC_PAGE_SIZE);
    return pages > 0 && pageBytes > 0 ? pages / 2 * pageBytes : kWhenUnknown;
}

void SetDecodeBufferLimit(Int bytes) noexcept { g_limit.store(bytes, std::memory_order_relaxed); }

}  // namespace orvik
