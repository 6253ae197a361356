#pragma once
/// @file
/// Files put together field by field, and a slow decoder of TGA to judge by.

#include "codec_support.h"

namespace codectest {

// --- BMP -------------------------------------------------------------------------------------------------------------

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

// --- Radiance HDR ----------------------------------------------------------------------------------------------------

/// A header with these words as its resolution line.
std::string HdrHeaderText(const std::string& resolution);
inline std::string HdrHeaderText(Int width, Int height) {
    return HdrHeaderText("-Y " + std::to_string(height) + " +X " + std::to_string(width));
}
Bytes HdrFile(const std::string& header, const Bytes& pixels);

/// A row in runs as others write it: everything as literals or runs at random.
/// @param rgbe  four bytes a pixel
Bytes PackHdrRow(const Bytes& rgbe, Noise& noise);

struct HdrPicture {
    Int width = 0, height = 0;
    Bytes rgbe;
    /// What a program gives that takes a mantissa as it is: m * 2^(e - 136).
    std::vector<float> ToFloats() const;
};

// --- TGA -------------------------------------------------------------------------------------------------------------

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

/// A file of indices, 2 x 2 unless the caller changes that.
TgaParts Mapped(uint8_t depth, uint8_t mapBits, uint16_t first, uint16_t length, Bytes map, Bytes pixels);

/// The pixels in random valid packets.
/// @param pixelBytes  bytes of one pixel
Bytes PackInRuns(const Bytes& pixels, int pixelBytes, Noise& noise);

/// RGBA of 8 bits, decoded straight from the definition of the format. Empty for what is no TGA.
Bytes DecodeTgaSlowly(const Bytes& file);

}  // namespace codectest
