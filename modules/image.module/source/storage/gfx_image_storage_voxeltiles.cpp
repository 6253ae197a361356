#include "storage/gfx_image_storage_voxeltiles.h"

#include <cstring>

namespace orvik {
namespace {

/// A line from its n-th pixel on.
template <class Line, class Byte>
Line AdvanceLine(const Line& line, Byte* data, Int pixels) {
    const Int bit = line.phase + pixels * line.stride.GetBits();
    return {data + (bit >> 3), line.stride, static_cast<int>(bit & 7)};
}

void CopyBit(std::byte* to, Int toBit, const std::byte* from, Int fromBit) {
    const auto mask = std::byte(0x80 >> (toBit & 7));
    const bool set = (std::to_integer<int>(from[fromBit >> 3]) << (fromBit & 7) & 0x80) != 0;
    to[toBit >> 3] = set ? to[toBit >> 3] | mask : to[toBit >> 3] & ~mask;
}

}  // namespace

VoxelTiles::~VoxelTiles() {
    (void)_grid.ForEachTile([](TilePosition, void* tile) {  // cannot fail
        Free(tile);
        return Result<void>();
    });
}

Result<void> VoxelTiles::Init(BITS bitsPerPixel, Block<const std::byte> color) {
    const Int bits = bitsPerPixel.GetBits();
    if (bits < 0 || bits > std::numeric_limits<int32_t>::max())
        return OutOfMemoryError();
    _bits = bitsPerPixel;
    TRY(_defaultLine.Resize((_bits * kTileSize).GetBytes(), RESIZEFLAGS::FIT_TO_SIZE));
    if (color.empty())
        return {};
    for (Int x = 0; x < kTileSize; ++x) {
        for (Int bit = 0; bit < bits; ++bit)
            CopyBit(_defaultLine.GetFirst(), x * bits + bit, color.data(), bit);
    }
    return {};
}

Result<void> VoxelTiles::CopyFrom(const VoxelTiles& other) {
    _bits = other._bits;
    TRY(_defaultLine.CopyFrom(other._defaultLine));
    return other._grid.ForEachTile([this](TilePosition position, void* tile) -> Result<void> {
        TRY(_grid.Cover(position, position));
        void* copy = Allocate(GetTileBytes());
        if (!copy)
            return OutOfMemoryError();
        std::memcpy(copy, tile, GetTileBytes());
        _grid.Install(position, copy);
        return {};
    });
}

PixelLine VoxelTiles::GetLine(void* tile, const TileRun& run) const {
    const Int bit = run.x * _bits.GetBits();
    return {static_cast<std::byte*>(tile) + run.y * _defaultLine.GetCount() + (bit >> 3), _bits,
            static_cast<int>(bit & 7)};
}

/// A tile is filled before it is published, without a lock; a thread that comes second uses the first one's tile.
Result<void*> VoxelTiles::MakeTile(TilePosition position) {
    auto* tile = static_cast<std::byte*>(Allocate(GetTileBytes()));
    if (!tile)
        return OutOfMemoryError();
    for (Int y = 0; y < kTileSize; ++y)
        std::copy(_defaultLine.begin(), _defaultLine.end(), tile + y * _defaultLine.GetCount());
    void* present = _grid.Install(position, tile);
    if (present != tile)
        Free(tile);
    return present;
}

Result<void> VoxelTiles::Read(const PixelSpan& span, const PixelLine& dst, const ConvertPixelFunc& convert,
                              CONVERTPIXELFLAGS flags) const {
    TileWalk walk = TRY(TileWalk::Create(span));
    for (TileRun run; walk.Next(run);) {
        void* tile = _grid.Find(run.tile);
        const PixelLineConst src =
            tile ? PixelLineConst(GetLine(tile, run)) : PixelLineConst{_defaultLine.GetFirst(), _bits, 0};
        TRY(convert(AdvanceLine(dst, static_cast<std::byte*>(dst.data), run.spanIndex), run.count, src, flags));
    }
    return {};
}

Result<void> VoxelTiles::Write(const PixelSpan& span, const PixelLineConst& src, const ConvertPixelFunc& convert,
                               CONVERTPIXELFLAGS flags) {
    TileWalk walk = TRY(TileWalk::Create(span));
    if (!walk.IsEmpty())
        TRY(_grid.Cover(walk.GetFirst(), walk.GetLast()));
    for (TileRun run; walk.Next(run);) {
        void* tile = _grid.Find(run.tile);
        if (!tile)
            tile = TRY(MakeTile(run.tile));
        TRY(convert(GetLine(tile, run), run.count,
                    AdvanceLine(src, static_cast<const std::byte*>(src.data), run.spanIndex), flags));
    }
    return {};
}

}  // namespace orvik
