#pragma once
/// @file
/// The test picture through bare libpng and libjpeg, for comparison.

#include "jpeg_direct.h"
#include "png_direct.h"
#include "test_picture.h"

namespace bench {

/// With the library's default settings. Empty on failure.
inline std::vector<uint8_t> EncodeWithLibpng(const uint8_t* pixels) {
    return peers::WritePng({.width = kWidth, .height = kHeight}, pixels);
}
inline bool DecodeWithLibpng(const std::vector<uint8_t>& file, uint8_t* pixels) {
    return peers::ReadPng(file, {pixels, kPixelBytes}).height == kHeight;
}

/// Quality 0 to 100, float transform, otherwise the library's defaults. Empty on failure.
inline std::vector<uint8_t> EncodeWithLibjpeg(const uint8_t* pixels, int quality) {
    return peers::WriteJpeg(
        {.width = kWidth, .height = kHeight, .quality = quality, .forcesBaseline = false, .method = JDCT_FLOAT},
        pixels);
}
inline bool DecodeWithLibjpeg(const std::vector<uint8_t>& file, uint8_t* pixels) {
    return peers::ReadJpeg(file, {pixels, kPixelBytes}).height == kHeight;
}

}  // namespace bench
