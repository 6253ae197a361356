#pragma once
/// @file
/// PNG files written and read by libpng alone, as the other side of tests and benchmarks.

#include <cstdint>
#include <png.h>
#include <span>
#include <string>
#include <vector>

namespace peers {

struct PngPicture {
    uint32_t width = 0, height = 0;
    int colorType = PNG_COLOR_TYPE_RGB;
    int bitDepth = 8;
    bool interlaced = false;
    std::vector<uint8_t> rows = {};  ///< tightly packed, 16-bit samples in the machine's order
    bool hasKey = false;
    png_color_16 key = {};  ///< index, red, green, blue, grey
    uint32_t xPerMetre = 0, yPerMetre = 0;
    int unit = PNG_RESOLUTION_METER;
    std::string profileName = {};
    std::vector<uint8_t> profile = {};
    std::vector<png_color> palette = {};
    std::vector<uint8_t> alphas = {};  ///< of the first colours of the palette

    size_t RowBytes() const;
};

/// @param rows  taken in place of the picture's own
std::vector<uint8_t> WritePng(const PngPicture& picture, const uint8_t* rows = nullptr);
/// Everything the file says; an empty picture when libpng refuses it.
/// @param rows  takes the pixels in place of the picture's own rows, and must be exactly as large
PngPicture ReadPng(const std::vector<uint8_t>& file, std::span<uint8_t> rows = {});

}  // namespace peers
