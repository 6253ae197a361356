#pragma once
/// @file
/// The tiles of a voxel storage.

#include "storage/gfx_image_storage_tilegrid.h"

#include "orvik/gfx_image_storage.h"

namespace orvik {

/// Pixels of one format at any place. A tile is a block of 64 lines, each 64 pixels without padding; it is made, filled
/// with the default colour, when one of its pixels is first written. Line calls may run on several threads at once.
class VoxelTiles : public Object {
public:
    ~VoxelTiles() override;

    /// Once, before anything else.
    /// @param color  one pixel, or nothing for zeros
    Result<void> Init(BITS bitsPerPixel, Block<const std::byte> color);
    /// Instead of `Init`: takes on the default colour and copies of all tiles.
    Result<void> CopyFrom(const VoxelTiles& other);

    /// Reads a span through `convert`. Makes no tile.
    /// Errors: illegal argument for a span that no tiles can have, those of the conversion.
    Result<void> Read(const PixelSpan& span, const PixelLine& dst, const ConvertPixelFunc& convert,
                      CONVERTPIXELFLAGS flags) const;
    /// Writes a span through `convert`. Errors as for reading, and out of memory; runs before the failed one are
    /// written.
    Result<void> Write(const PixelSpan& span, const PixelLineConst& src, const ConvertPixelFunc& convert,
                       CONVERTPIXELFLAGS flags);

private:
    size_t GetTileBytes() const { return static_cast<size_t>(_defaultLine.GetCount() * kTileSize); }
    PixelLine GetLine(void* tile, const TileRun& run) const;
    Result<void*> MakeTile(TilePosition position);

    BITS _bits;
    BaseArray<std::byte> _defaultLine;  ///< of a tile; what reads where there is none
    TileGrid _grid;
};

}  // namespace orvik
