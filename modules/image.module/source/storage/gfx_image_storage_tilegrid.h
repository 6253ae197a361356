#pragma once
/// @file
/// The grid of tiles behind the sparse storages.

#include <shared_mutex>

#include "orvik/basearray.h"
#include "orvik/gfx_basictypes.h"

namespace orvik {

/// Pixels of a tile in both directions. Tile (tx, ty) covers x from 64 tx to 64 tx + 63, and y likewise.
inline constexpr Int kTileSize = 64;

/// Tile coordinates: pixel coordinates shifted right by 6 arithmetically, so that negative ones are valid.
struct TilePosition {
    int32_t x = 0, y = 0;
};

/// The part of a span within one tile.
struct TileRun {
    TilePosition tile;
    Int x = 0, y = 0;   ///< inside the tile, 0 ... 63
    Int count = 0;      ///< pixels
    Int spanIndex = 0;  ///< of the run's first pixel in the span
};

/// Cuts a span at the borders of tiles.
class TileWalk {
public:
    /// Illegal argument, without text, for a negative count and for pixels whose tile is outside 32 bits.
    static Result<TileWalk> Create(const PixelSpan& span);
    /// @return false behind the last run
    bool Next(TileRun& run);

    TilePosition GetFirst() const;
    /// Only for a span that is not empty.
    TilePosition GetLast() const;
    bool IsEmpty() const { return _span.count == 0; }

private:
    explicit TileWalk(const PixelSpan& span) : _span(span) {}

    PixelSpan _span;
    Int _done = 0;
};

/// One pointer for each tile of the smallest rectangle around all tiles that were asked for; the rectangle only grows.
/// What a tile is, its owner knows: the grid keeps addresses, and these stay valid until the owner deletes the tiles.
///
/// Any number of threads may look tiles up and install them. One reader/writer lock guards rectangle and array; a slot
/// is set by compare-and-swap under the read lock, since growing moves the slots.
class TileGrid {
public:
    /// 1 GiB of pointers.
    static constexpr Int kMaxSlots = Int(1) << 27;

    TileGrid() = default;
    TileGrid(const TileGrid&) = delete;
    TileGrid& operator=(const TileGrid&) = delete;
    ~TileGrid();

    /// @return the tile, or null; makes nothing
    void* Find(TilePosition position) const;
    /// Grows the rectangle so that it holds two tiles and all between them. Out of memory above `kMaxSlots`, and then
    /// nothing has changed.
    Result<void> Cover(TilePosition first, TilePosition last);
    /// Puts a tile into its empty slot, which `Cover` has made.
    /// @return the tile that is there now: this one, or that of a thread that was faster
    void* Install(TilePosition position, void* tile);

    /// Calls `visit(position, tile)` for each tile, row by row, under the read lock; a result stops at its first error.
    template <class F>
    Result<void> ForEachTile(F&& visit) const {
        const std::shared_lock guard(_lock);
        for (Int i = 0; i < GetSlotCount(); ++i) {
            if (void* tile = Load(_slots[i])) {
                const TilePosition position{static_cast<int32_t>(_min.x + i % _width),
                                            static_cast<int32_t>(_min.y + i / _width)};
                TRY(visit(position, tile));
            }
        }
        return {};
    }

private:
    static void* Load(void*& slot) { return std::atomic_ref<void*>(slot).load(std::memory_order_acquire); }
    Int GetSlotCount() const { return _width * _height; }
    bool Holds(TilePosition position) const {
        return _min.x <= position.x && position.x <= _max.x && _min.y <= position.y && position.y <= _max.y;
    }
    void*& SlotOf(TilePosition position) const {
        return _slots[(Int(position.y) - _min.y) * _width + (Int(position.x) - _min.x)];
    }

    static constexpr int32_t kNone = std::numeric_limits<int32_t>::max();

    mutable std::shared_mutex _lock;
    TilePosition _min{kNone, kNone},
        _max{-kNone - 1, -kNone - 1};  ///< both inclusive; these values are the empty rectangle
    Int _width = 0, _height = 0;
    void** _slots = nullptr;
};

}  // namespace orvik
