#pragma once
/// @file
/// The two routes that any formats may take when no direct conversion is known.

#include "orvik/gfx_image_pixelformat.h"

namespace orvik::pixel {

/// Channel by channel: the k-th source channel of a type goes to the k-th destination channel of that type, other
/// destination channels get the fill value of their type.
/// @return an empty delegate when the channels do not fit together
Result<ConvertPixelFunc> FindChannelRoute(const PixelFormat& dstFormat, ChannelOffsets dstOffsets,
                                          const PixelFormat& srcFormat, ChannelOffsets srcOffsets);

/// In two steps through an RGB or ARGB format, by blocks of 64 pixels.
/// Errors: "No pixel conversion found from '@' to '@'", with the failed step's error as its cause.
Result<ConvertPixelFunc> FindIntermediateRoute(const PixelFormat& dstFormat, ChannelOffsets dstOffsets,
                                               ColorProfile* dstProfile, const PixelFormat& srcFormat,
                                               ChannelOffsets srcOffsets, const ColorProfile* srcProfile,
                                               CONVERTPIXELFLAGS flags, bool& isColorProfileConversion);

/// Copies whole pixels of a format into the same format. Handles pixels below 8 bits with their bit phases; bits beside
/// the pixels keep their values.
/// @param packedPixels  pixels of one addressable unit; 2 refuses odd counts
ConvertPixelFunc MakePixelCopy(BITS bitsPerPixel, Int packedPixels);

}  // namespace orvik::pixel
