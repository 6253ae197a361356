#pragma once
/// @file
/// Bare libpng, the other side of the PNG figures.

#include <cstdint>
#include <vector>

namespace bench {

/// Writes a picture of the size of the test picture with the library's default settings. Empty on failure.
std::vector<uint8_t> EncodeWithLibpng(const uint8_t* pixels);
/// Decodes such a picture row by row. @return false on failure
bool DecodeWithLibpng(const std::vector<uint8_t>& file, uint8_t* pixels);

}  // namespace bench
