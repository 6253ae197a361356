#pragma once
/// Files put together field by field, a slow decoder of TGA to judge by, and what the tests of several formats use.

#include <array>

#include "format_table.h"

namespace codectest {

/// @{ Bytes one behind the other.
Bytes BytesOf(std::string_view text);
Bytes Joined(std::initializer_list<Bytes> parts);
/// @}
/// Pixels as 0xRRGGBBAA.
Bytes Rgba(std::initializer_list<uint32_t> pixels);
inline Id FormatId(const std::string& name) { return *Id::Create("net.orvik.image.pixelformat." + name); }
ColorProfile ProfileOf(const ImageTextureRef& texture);
std::vector<float> FloatsOf(const ImageBaseRef& image);
/// @param dpi, aspectRatio  0: the picture has none
void ExpectResolution(const Bytes& file, Float dpi, Float aspectRatio, Float tolerance = 1e-9);

/// @{ Writers named by their arguments: ImageMagick, and a tool that converts from PPM.
ForeignWriter MagickWriter(const char* arguments, Bytes (*keeps)(Bytes rgba) = nullptr, int tolerance = 0);
ForeignWriter PpmWriter(const char* tool, const char* arguments, Bytes (*keeps)(Bytes rgba) = nullptr);
/// @}
template <class Attribute, class Value>
ExportVariant MakeVariant(std::string name, const Attribute& attribute, const Value& value) {
    ExportVariant variant{.name = std::move(name)};
    EXPECT_TRUE(variant.settings.Set(attribute, value));
    return variant;
}

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

/// A file with masks, of 2 x 2 pixels of 32 bits or 3 x 1 of 16.
BmpParts Masked(int bits, uint32_t headerSize, std::array<uint32_t, 4> rgbaMasks, Bytes rows);
/// A file with a palette, whose entries have four bytes but behind a core header.
BmpParts Indexed(int bits, int width, int height, Bytes palette, Bytes rows, uint32_t headerSize = 40);
/// A file of run lengths, whose colours identify their index: red is 10 times the index.
BmpParts Runs(int bits, int width, int height, Bytes data);

// --- Radiance HDR ----------------------------------------------------------------------------------------------------

/// A header with these words as its resolution line.
std::string HdrHeaderText(const std::string& resolution);
inline std::string HdrHeaderText(Int width, Int height) {
    return HdrHeaderText("-Y " + std::to_string(height) + " +X " + std::to_string(width));
}
inline Bytes HdrFile(std::string_view header, const Bytes& pixels) { return Joined({BytesOf(header), pixels}); }

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
    Bytes Make() const;
};

/// A file of indices, 2 x 2 unless the caller changes that.
TgaParts Mapped(uint8_t depth, uint8_t mapBits, uint16_t first, uint16_t length, Bytes map, Bytes pixels);

/// The pixels in random valid packets.
/// @param pixelBytes  bytes of one pixel
/// @param lowest  the count that a packet of one pixel has in its first byte
Bytes PackInRuns(const Bytes& pixels, size_t pixelBytes, Noise& noise, size_t lowest = 0);

/// RGBA of 8 bits, decoded straight from the definition of the format. Empty for what is no TGA.
Bytes DecodeTgaSlowly(const Bytes& file);

}  // namespace codectest
