#pragma once
/// @file
/// Palettes of files.

#include "orvik/gfx_image_pixelformat.h"

namespace orvik {

/// Makes an indexed format with its own palette.
/// @param bits         of an index: 1 to 8, or 16
/// @param entryFormat  of the colours
/// @param colors       tightly packed pixels of `entryFormat`, 1 to 2^bits of them; indices beyond them are all zero
/// Errors: illegal argument for another number of bits or colours; out of memory.
Result<PixelFormat> MakePaletteFormat(Int bits, const PixelFormat& entryFormat, Block<const std::byte> colors);

}  // namespace orvik
