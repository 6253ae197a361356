#pragma once
/// @file
/// TGA files put together field by field, and a slow decoder to judge by.

#include "codec_support.h"

namespace codectest {

/// The bytes of a TGA as a test puts them together.
struct TgaParts {
    Bytes id = {};
    uint8_t mapType = 0, imageType = 2;
    uint16_t mapFirst = 0, mapLength = 0;
    uint8_t mapBits = 0;
    uint16_t width = 2, height = 2;
    uint8_t depth = 24;
    uint8_t descriptor = 0;  ///< 0x20: from the top down, 0x10: from right to left
    Bytes map = {};
    Bytes pixels = {};  ///< as they stand in the file
    bool footer = false;
    Bytes Make() const;
};

/// The pixels in packets: random ones, lawful ones.
/// @param pixelBytes  bytes of one pixel
Bytes PackInRuns(const Bytes& pixels, int pixelBytes, Noise& noise);

/// RGBA of 8 bits, read by the letter of the format from a whole file in memory. Empty for what is no TGA.
Bytes DecodeTgaSlowly(const Bytes& file);

}  // namespace codectest
