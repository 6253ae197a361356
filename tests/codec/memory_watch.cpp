#include "memory_watch.h"

#include <algorithm>
#include <atomic>

#ifdef __SANITIZE_ADDRESS__
// Of the sanitizer's run-time library; not every compiler brings its headers.
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*onAllocate)(const volatile void*, size_t),
                                              void (*onFree)(const volatile void*));
size_t __sanitizer_get_allocated_size(const volatile void* block);
}
#endif

namespace codectest {
namespace {

std::atomic<bool> g_watches{false};
std::atomic<long> g_live{0}, g_peak{0};

#ifdef __SANITIZE_ADDRESS__

void OnAllocate(const volatile void*, size_t bytes) {
    if (!g_watches)
        return;
    const long live = g_live += long(bytes);
    long peak = g_peak;
    while (live > peak && !g_peak.compare_exchange_weak(peak, live)) {
    }
}

void OnFree(const volatile void* block) {
    if (g_watches && block)
        g_live -= long(__sanitizer_get_allocated_size(block));
}

[[maybe_unused]] const bool g_installed = __sanitizer_install_malloc_and_free_hooks(OnAllocate, OnFree) != 0;

#endif

}  // namespace

MemoryWatch::MemoryWatch() {
    g_live = g_peak = 0;
    g_watches = true;
}

MemoryWatch::~MemoryWatch() { g_watches = false; }

size_t MemoryWatch::GetPeakBytes() const { return size_t(std::max(g_peak.load(), 0L)); }

}  // namespace codectest
