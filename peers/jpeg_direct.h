#pragma once
/// @file
/// JPEG files written and read by libjpeg alone, for tests and benchmarks to compare with.

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <jpeglib.h>
#include <span>
#include <string>
#include <vector>

namespace peers {

/// A raw segment of the file.
struct JpegSegment {
    int marker;
    std::vector<uint8_t> payload;
};

struct JpegPicture {
    uint32_t width = 0, height = 0;
    J_COLOR_SPACE colorSpace = JCS_RGB;  ///< of the rows
    std::vector<uint8_t> rows = {};      ///< tightly packed
    int quality = 75;
    bool forcesBaseline = true;
    J_DCT_METHOD method = JDCT_ISLOW;
    bool progressive = false;
    bool arithmetic = false;
    int restartRows = 0;
    /// Sampling factors of the first component; the others have 1.
    int horizontal = 2, vertical = 2;
    int densityUnit = 0, xDensity = 1, yDensity = 1;
    std::vector<uint8_t> profile = {};
    std::vector<JpegSegment> segments = {};  ///< for writing only

    int Channels() const { return colorSpace == JCS_GRAYSCALE ? 1 : colorSpace == JCS_CMYK ? 4 : 3; }
    size_t RowBytes() const { return size_t(width) * size_t(Channels()); }
};

/// @param rows  replaces the picture's own
std::vector<uint8_t> WriteJpeg(const JpegPicture& picture, const uint8_t* rows = nullptr);
/// Size, rows and profile; an empty picture when libjpeg rejects the file.
/// @param rows  receives the pixels instead of the picture's own rows; must have the exact size
JpegPicture ReadJpeg(const std::vector<uint8_t>& file, std::span<uint8_t> rows = {});

/// Position of the first segment with one of these markers, found by walking the segments; the file size if none.
size_t FindSegment(const std::vector<uint8_t>& file, std::initializer_list<uint8_t> markers);
/// The same file with another size in its header.
std::vector<uint8_t> ResizeJpeg(std::vector<uint8_t> file, int width, int height);

}  // namespace peers
