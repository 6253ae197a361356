#pragma once
/// @file
/// PNG files written and read by libpng alone, for tests and benchmarks to compare with.

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
    std::vector<uint8_t> rows = {};  ///< tightly packed, 16-bit samples in machine byte order
    bool hasKey = false;
    png_color_16 key = {};  ///< index, red, green, blue, grey
    uint32_t xPerMetre = 0, yPerMetre = 0;
    int unit = PNG_RESOLUTION_METER;
    std::string profileName = {};
    std::vector<uint8_t> profile = {};
    std::vector<png_color> palette = {};
    std::vector<uint8_t> alphas = {};  ///< of the first palette entries

    size_t RowBytes() const;
};

/// @param rows  replaces the picture's own
std::vector<uint8_t> WritePng(const PngPicture& picture, const uint8_t* rows = nullptr);
/// All contents of the file; an empty picture when libpng rejects it.
/// @param rows  receives the pixels instead of the picture's own rows; must have the exact size
PngPicture ReadPng(const std::vector<uint8_t>& file, std::span<uint8_t> rows = {});

}  // namespace peers
