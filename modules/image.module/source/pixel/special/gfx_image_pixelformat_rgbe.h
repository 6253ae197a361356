#pragma once
/// @file
/// Shared exponents: three mantissas of 8 bits and one exponent byte, biased by 128.

#include <bit>
#include <cstdint>

namespace orvik::pixel {

/// The value of a mantissa's lowest bit: 2^(e - 136); 0 for the byte 0.
constexpr float GetRgbeScale(uint8_t exponent) {
    const uint32_t e = exponent;
    // 2^(e - 136) has the biased exponent e - 9; what is below 1 is a denormal with a single bit.
    const uint32_t normal = (e - 9) << 23, denormal = e == 0 ? 0 : 1u << ((e + 13) & 31);
    return std::bit_cast<float>(e > 9 ? normal : denormal);
}
/// The middle of the mantissa's step, so that a mantissa of 0 is not black.
constexpr float DecodeRgbe(uint8_t mantissa, float scale) { return (static_cast<float>(mantissa) + 0.5f) * scale; }

/// The greatest float whose exponent fits the byte.
inline constexpr float kRgbeLimit = 0x1.fffffep126f;

/// NaN becomes 0 and what is too bright becomes the brightest.
constexpr float LimitForRgbe(float value) {
    const float limited = value < kRgbeLimit ? value : kRgbeLimit;
    return value == value ? limited : 0.0f;
}

struct RgbeScale {
    float factor = 0;      ///< from a channel to its mantissa
    uint8_t exponent = 0;  ///< the byte
};
/// @param brightest  the greatest channel, at most `kRgbeLimit`; up to 1e-32 all bytes are 0
constexpr RgbeScale MakeRgbeScale(float brightest) {
    const bool isDark = 1e-32f >= brightest;
    const float v = isDark ? 1.0f : brightest;
    const uint32_t bits = std::bit_cast<uint32_t>(v);  // normal and positive: mantissa and exponent lie open
    const float mantissa = std::bit_cast<float>((bits & 0x007FFFFF) | 0x3F000000);  // 0.5 ... 1
    const uint32_t exponent = (bits >> 23) - 126 + 128;
    const float factor = mantissa * 255.9999f / v;
    return {isDark ? 0.0f : factor, static_cast<uint8_t>(isDark ? 0 : exponent)};
}
/// The low 8 bits of the truncated product; a channel below 0 wraps. Beyond 32 bits a float is a multiple of 256.
constexpr uint8_t EncodeRgbe(float value, float factor) {
    const float product = value * factor;
    const bool fits = product > -2147483648.0f && product < 2147483648.0f;
    return static_cast<uint8_t>(static_cast<int32_t>(fits ? product : 0.0f));
}

static_assert(GetRgbeScale(136) == 1.0f && GetRgbeScale(1) == 0x1p-135f && GetRgbeScale(255) == 0x1p119f);
static_assert(GetRgbeScale(9) == 0x1p-127f && GetRgbeScale(10) == 0x1p-126f && GetRgbeScale(0) == 0.0f);

}  // namespace orvik::pixel
