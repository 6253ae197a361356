#pragma once
/// @file
/// Colour tables of files.

#include "orvik/gfx_image_pixelformat.h"

namespace orvik {

/// An indexed format with a colour table of its own.
/// @param bits         of an index: 1 to 8, or 16
/// @param entryFormat  of the colours
/// @param colors       pixels of `entryFormat` without gaps, 1 to 2^bits of them; indices beyond them are all zero
/// Errors: illegal argument for another number of bits or colours; out of memory.
Result<PixelFormat> MakePaletteFormat(Int bits, const PixelFormat& entryFormat, Block<const std::byte> colors);

}  // namespace orvik
