#pragma once
/// @file
/// The picture that codecs are measured with.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

inline constexpr int kWidth = 4096;
inline constexpr int kHeight = 2160;
inline constexpr size_t kRowBytes = size_t(kWidth) * 3;
inline constexpr size_t kPixelBytes = kRowBytes * kHeight;

/// 8-bit RGB, top row first, similar to photographs: slow gradients, edges and noise in the low bits, which every
/// fourth tile lacks.
std::vector<uint8_t> MakeTestPicture();
/// The same, made once and kept.
const std::vector<uint8_t>& TestPicture();
/// The same as RGB of 32-bit floats, made once and kept: linear, with highlights above 1.
const std::vector<float>& TestFloats();

}  // namespace bench
