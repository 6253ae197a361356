#pragma once
/// @file
/// Bare libjpeg, the other side of the JPEG figures.

#include <cstdint>
#include <vector>

namespace bench {

/// Writes a picture of the size of the test picture: quality 0 to 100, the transform in floats, else the library's
/// defaults. Empty on failure.
std::vector<uint8_t> EncodeWithLibjpeg(const uint8_t* pixels, int quality);
/// Decodes such a picture row by row with the library's defaults. @return false on failure
bool DecodeWithLibjpeg(const std::vector<uint8_t>& file, uint8_t* pixels);

}  // namespace bench
