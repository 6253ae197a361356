#pragma once
/// @file
/// Indices in a line of bits, and the colours that they stand for.

#include "orvik/gfx_image_pixelformat.h"

namespace orvik::pixel {

inline constexpr Int kIndexBlock = 256;

/// Reads indices. Those below a byte lie with their most significant bit first and may begin at any bit; 16 bits are a
/// little-endian word. Reads no byte that holds no bit of the indices.
/// @param width   1 to 8, or 16
/// @param first   pixels behind the line's first
/// @param count   at most `kIndexBlock`
void ReadIndices(const PixelLineConst& line, Int first, Int count, Int width, uint16_t* indices);

/// The conversion from indices to a format of whole bytes: colours are converted once, pixels copied from them.
/// @param colors      every possible index as one pixel of the format, without gaps
/// @param offsets     where the format's own pixels have their channels
/// @param dstOffsets  of the destination channels
/// Errors: unsupported argument for channels that are none of 1, 2, 4 or 8 bytes.
Result<ConvertPixelFunc> MakeColorLookup(BaseArray<std::byte> colors, Int width, ChannelOffsets offsets,
                                         ChannelOffsets dstOffsets);

}  // namespace orvik::pixel
