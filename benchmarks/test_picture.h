#pragma once
/// @file
/// The picture that codecs are measured with, and bare libpng, the other side of the PNG figures.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

inline constexpr int kWidth = 4096;
inline constexpr int kHeight = 2160;
inline constexpr size_t kRowBytes = size_t(kWidth) * 3;
inline constexpr size_t kPixelBytes = kRowBytes * kHeight;

/// RGB of 8 bits, top row first: slow gradients, edges, and noise in the low bits, as photographs have them.
std::vector<uint8_t> MakeTestPicture();

/// Writes with the library's default settings. Empty on failure.
std::vector<uint8_t> EncodeWithLibpng(const std::vector<uint8_t>& pixels);
/// Decodes row by row into freshly allocated memory, as a load must. @return false on failure
bool DecodeWithLibpng(const std::vector<uint8_t>& file);

}  // namespace bench
