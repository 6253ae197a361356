#pragma once
/// @file
/// BMP files put together field by field.

#include "codec_support.h"

namespace codectest {

struct BmpParts {
    uint32_t headerSize = 40;
    int32_t width = 2, height = 2;
    uint16_t planes = 1, bitCount = 24;
    uint32_t compression = 0;
    int32_t xPerMetre = 0, yPerMetre = 0;
    uint32_t colorsUsed = 0;
    uint32_t red = 0, green = 0, blue = 0, alpha = 0;
    uint32_t space = 0x73524742;
    Bytes palette = {};  ///< behind the header
    Bytes profile = {};  ///< behind the palette
    Bytes rows = {};     ///< as they stand in the file
    Bytes Make() const;
};

/// @{ Files of 2 x 2 pixels of 32 bits, and of 3 x 1 of 16, with masks.
BmpParts Masked32(uint32_t headerSize, uint32_t red, uint32_t green, uint32_t blue, uint32_t alpha, Bytes rows);
BmpParts Masked16(uint32_t headerSize, uint32_t red, uint32_t green, uint32_t blue, uint32_t alpha, Bytes rows);
/// @}
/// A file with a palette, whose entries have four bytes but behind a core header.
BmpParts Indexed(int bits, int width, int height, Bytes palette, Bytes rows, uint32_t headerSize = 40);
/// A file of run lengths.
BmpParts Runs(int bits, int width, int height, Bytes palette, Bytes data);

}  // namespace codectest
