#pragma once
/// @file
/// Brightness and chroma of 8 bits, ITU-R BT.601 in its integer form.

#include <cstdint>

namespace orvik::pixel {

constexpr uint8_t ClampToByte(int value) { return static_cast<uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value); }

/// @param y, u, v  bytes as stored; the rounding is part of the constant 4640 = 298 * 16 - 128
constexpr uint8_t YuvToRed(int y, int v) { return ClampToByte((y * 298 - 4640 + 409 * (v - 128)) >> 8); }
constexpr uint8_t YuvToGreen(int y, int u, int v) {
    return ClampToByte((y * 298 - 4640 - 100 * (u - 128) - 208 * (v - 128)) >> 8);
}
constexpr uint8_t YuvToBlue(int y, int u) { return ClampToByte((y * 298 - 4640 + 516 * (u - 128)) >> 8); }

/// No combination of bytes leaves 16 ... 240.
constexpr uint8_t RgbToY(int r, int g, int b) {
    return static_cast<uint8_t>(((66 * r + 129 * g + 25 * b + 128) >> 8) + 16);
}
constexpr uint8_t RgbToU(int r, int g, int b) {
    return static_cast<uint8_t>(((-38 * r - 74 * g + 112 * b + 128) >> 8) + 128);
}
constexpr uint8_t RgbToV(int r, int g, int b) {
    return static_cast<uint8_t>(((112 * r - 94 * g - 18 * b + 128) >> 8) + 128);
}

static_assert(YuvToRed(16, 128) == 0 && YuvToGreen(16, 128, 128) == 0 && YuvToBlue(235, 128) == 255);
static_assert(RgbToY(255, 255, 255) == 235 && RgbToU(0, 0, 255) == 240 && RgbToV(0, 255, 255) == 16);

}  // namespace orvik::pixel
