#include "storage/gfx_image_storage_tilegrid.h"

#include <mutex>

#include "orvik/errortypes.h"

namespace orvik {
namespace {

constexpr int kTileShift = 6;
static_assert(kTileSize == 1 << kTileShift);

bool IsTileCoordinate(Int tile) { return tile == static_cast<int32_t>(tile); }

TilePosition TileOf(Int x, Int y) {
    return {static_cast<int32_t>(x >> kTileShift), static_cast<int32_t>(y >> kTileShift)};
}

}  // namespace

Result<TileWalk> TileWalk::Create(const PixelSpan& span) {
    Int end = 0;
    if (span.count < 0 || __builtin_add_overflow(span.x, std::max<Int>(span.count - 1, 0), &end) ||
        !IsTileCoordinate(span.x >> kTileShift) || !IsTileCoordinate(end >> kTileShift) ||
        !IsTileCoordinate(span.y >> kTileShift))
        return IllegalArgumentError();
    return TileWalk(span);
}

TilePosition TileWalk::GetFirst() const { return TileOf(_span.x, _span.y); }
TilePosition TileWalk::GetLast() const { return TileOf(_span.x + _span.count - 1, _span.y); }

bool TileWalk::Next(TileRun& run) {
    if (_done >= _span.count)
        return false;
    const Int x = _span.x + _done;
    run.tile = TileOf(x, _span.y);
    run.x = x & (kTileSize - 1);
    run.y = _span.y & (kTileSize - 1);
    run.count = std::min(kTileSize - run.x, _span.count - _done);
    run.spanIndex = _done;
    _done += run.count;
    return true;
}

TileGrid::~TileGrid() { Free(_slots); }

void* TileGrid::Find(TilePosition position) const {
    const std::shared_lock guard(_lock);
    return Holds(position) ? Load(SlotOf(position)) : nullptr;
}

Result<void> TileGrid::Cover(TilePosition first, TilePosition last) {
    {
        const std::shared_lock guard(_lock);
        if (Holds(first) && Holds(last))
            return {};
    }
    const std::unique_lock guard(_lock);
    // Another thread may have grown it already; then this changes nothing.
    const TilePosition min{std::min({_min.x, first.x, last.x}), std::min({_min.y, first.y, last.y})};
    const TilePosition max{std::max({_max.x, first.x, last.x}), std::max({_max.y, first.y, last.y})};
    const Int width = Int(max.x) - min.x + 1, height = Int(max.y) - min.y + 1;
    if (width == _width && height == _height)
        return {};
    if (width > kMaxSlots / height)  // both are at most 2^32
        return OutOfMemoryError();
    auto** slots = static_cast<void**>(AllocateZeroed(static_cast<size_t>(width * height) * sizeof(void*)));
    if (!slots)
        return OutOfMemoryError();
    for (Int y = 0; y < _height; ++y) {
        const Int to = (_min.y - Int(min.y) + y) * width + (_min.x - Int(min.x));
        std::copy_n(_slots + y * _width, _width, slots + to);
    }
    Free(_slots);
    _slots = slots;
    _min = min;
    _max = max;
    _width = width;
    _height = height;
    return {};
}

void* TileGrid::Install(TilePosition position, void* tile) {
    const std::shared_lock guard(_lock);
    void* present = nullptr;
    return std::atomic_ref<void*>(SlotOf(position))
                   .compare_exchange_strong(present, tile, std::memory_order_acq_rel, std::memory_order_acquire)
               ? tile
               : present;
}

}  // namespace orvik
