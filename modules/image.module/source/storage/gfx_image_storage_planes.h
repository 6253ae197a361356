#pragma once
/// @file
/// The planes storage: one contiguous block, one plane a channel.

#include "storage/gfx_image_storage_raster.h"

namespace orvik {

/// All channels are equally wide; lines follow each other without padding, and planes too. No lock: different lines may
/// be read and written at the same time.
class ImagePixelStoragePlanes : public ImagePixelStorageRasterBase {
public:
    /// "ImagePixelStoragePlanes doesn't work with pixel format: @." for channels of different widths; illegal argument
    /// for a raster without a byte, as one of width 0 is.
    Result<void> Init(Int width, Int height, const PixelFormat& format, Block<const std::byte> defaultColor) override;
    /// Function not implemented for channels below 8 bits, whatever the index.
    Result<void> GetComponent(Int channel, const PixelSpan& span, void* destination, Int stride,
                              GETPIXELFLAGS flags) override;
    Result<void> SetComponent(Int channel, const PixelSpan& span, const void* source, Int stride,
                              SETPIXELFLAGS flags) override;
    /// Copies the whole block.
    Result<Ref<Object>> Clone() const override;

private:
    /// Checks channel and span of an access to one plane.
    Result<void> CheckComponents(Int channel, const PixelSpan& span) const;
    /// Where the value of pixel `x` starts. Only after the check.
    std::byte* GetValue(Int channel, Int x, Int y) const;
};

}  // namespace orvik
