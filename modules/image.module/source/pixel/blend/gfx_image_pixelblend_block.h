#pragma once
/// @file
/// What the blend handlers share that work by blocks of pixels on the stack.

#include "orvik/gfx_image_pixelblend.h"

namespace orvik {

/// The mode that applies a mask to the alpha of pixels.
Result<ImagePixelBlend> CreateApplyAlpha();

namespace pixel {

/// A multiple of 8, so that a block of any pixels begins at a whole byte behind the run's first.
inline constexpr Int kBlendBlockPixels = 64;

inline PixelLineConst AdvanceLine(const PixelLineConst& line, Int pixels) {
    return {static_cast<const std::byte*>(line.data) + pixels * line.stride.GetBits() / 8, line.stride, line.phase};
}
inline PixelLine AdvanceLine(const PixelLine& line, Int pixels) {
    return {static_cast<std::byte*>(line.data) + pixels * line.stride.GetBits() / 8, line.stride, line.phase};
}

/// The conversion between two formats as their numbers stand, without profiles.
Result<ConvertPixelFunc> FindBlendConversion(const PixelFormat& dstFormat, ChannelOffsets dstOffsets,
                                             const PixelFormat& srcFormat, ChannelOffsets srcOffsets);

/// Is `format` the published one of `id`, with its channels in their usual places?
bool IsPlainFormat(const PixelFormat& format, ChannelOffsets offsets, const Id& id);

}  // namespace pixel
}  // namespace orvik
