#pragma once
/// @file
/// Memory as a load allocates it.

#include <cstddef>
#include <cstdint>
#include <sys/mman.h>

namespace bench {

/// A block fresh from the system, in large pages where available, like the storage of a big picture. Both sides of a
/// ratio decode into such a block, so that both pay for the page faults.
class FreshMemory {
public:
    explicit FreshMemory(size_t bytes) : _bytes(bytes) {
        void* block = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block == MAP_FAILED)
            return;
        madvise(block, bytes, MADV_HUGEPAGE);
        _first = static_cast<uint8_t*>(block);
    }
    ~FreshMemory() {
        if (_first)
            munmap(_first, _bytes);
    }
    FreshMemory(const FreshMemory&) = delete;
    FreshMemory& operator=(const FreshMemory&) = delete;

    /// Null when out of memory.
    uint8_t* GetFirst() const { return _first; }

private:
    size_t _bytes;
    uint8_t* _first = nullptr;
};

}  // namespace bench
