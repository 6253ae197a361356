#include "orvik/crc32c.h"

#include <algorithm>
#include <isa-l.h>

namespace orvik {

uint32_t ComputeCrc32c(Block<const std::byte> bytes, uint32_t crc) noexcept {
    constexpr size_t kMaxRun = size_t(1) << 30;  // the library counts in int
    while (!bytes.empty()) {
        const size_t run = std::min(bytes.size(), kMaxRun);
        // The library works on the bare register and only reads the bytes.
        auto* first = const_cast<unsigned char*>(reinterpret_cast<const unsigned char*>(bytes.data()));
        crc = ~crc32_iscsi(first, static_cast<int>(run), ~crc);
        bytes = bytes.subspan(run);
    }
    return crc;
}

}  // namespace orvik
