#pragma once
/// @file
/// The nodata storage: size and format without pixels.

#include "storage/gfx_image_storage_raster.h"

namespace orvik {

/// Carries a description where only that is wanted, as during Analyze. Handlers can be made, so that a chain of
/// conversions can be set up; a call of their line functions is a function-not-implemented error.
class ImagePixelStorageNoData : public ImagePixelStorageRasterBase {
public:
    Result<void> Init(Int width, Int height, const PixelFormat& format, Block<const std::byte> defaultColor) override;
    Result<GetPixelHandlerStruct> GetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                  const ColorProfile& storedProfile, const ColorProfile& profile,
                                                  GETPIXELHANDLERFLAGS flags) override;
    Result<SetPixelHandlerStruct> SetPixelHandler(const PixelFormat& format, ChannelOffsets offsets,
                                                  const ColorProfile& storedProfile, const ColorProfile& profile,
                                                  SETPIXELHANDLERFLAGS flags, const RegionDelegate& region) override;
    Result<Ref<Object>> Clone() const override;
};

}  // namespace orvik
