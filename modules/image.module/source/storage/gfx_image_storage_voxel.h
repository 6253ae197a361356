#pragma once
/// @file
/// The voxel storage: sparse and without borders, in tiles of 64 by 64 pixels.

#include "storage/gfx_image_storage_raster.h"
#include "storage/gfx_image_storage_voxeltiles.h"

namespace orvik {

/// Pixels may lie anywhere, at negative coordinates too; the size is only what was declared. A tile is made when
/// one of its pixels is first written; until then, pixels read as the default colour. Lines may be read and written on
/// several threads at once; two writers of one pixel are not kept apart.
///
/// Single components are not implemented.
class ImagePixelStorageVoxel : public ImagePixelStorageRasterBase {
public:
    /// Drops all tiles, also when it fails later.
    /// @param defaultColor  one pixel; empty means zeros. "Illegal argument: Condition defaultColor->GetCount() ==
    ///                      _bitsPerPixel.GetBytes() not fulfilled. " for another size
    Result<void> Init(Int width, Int height, const PixelFormat& format, Block<const std::byte> defaultColor) override;
    /// The line call knows spans anywhere: illegal argument only for a negative count and for tile coordinates that do
    /// not fit 32 bits.
    Result<GetPixelHandlerStruct> GetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                  const ColorProfile& storedProfile, const ColorProfile& profile,
                                                  GETPIXELHANDLERFLAGS flags) override;
    Result<SetPixelHandlerStruct> SetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                  const ColorProfile& storedProfile, const ColorProfile& profile,
                                                  SETPIXELHANDLERFLAGS flags, const RegionDelegate& region) override;
    /// Copies every tile.
    Result<Ref<Object>> Clone() const override;

private:
    Ref<VoxelTiles> _tiles;
};

}  // namespace orvik
