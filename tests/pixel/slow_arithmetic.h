#pragma once
// An independent, slow evaluation of the component table: exact integers and 128-bit floats, written from the rules of
// each cell. Components are passed as their raw bits.

#include <cmath>
#include <cstring>

#include "orvik/gfx_image_channels.h"

namespace orvik::slow {

using Wide = __int128;
using Exact = __float128;
using enum ComponentType;

inline bool IsFloat(ComponentType type) { return type == F16 || type == F32 || type == F64; }
inline bool IsSigned(ComponentType type) { return type == S8 || type == S16 || type == S32; }
inline uint64_t MaskOf(ComponentType type) { return ~uint64_t(0) >> (64 - GetComponentBits(type)); }

template <class T, class U>
T Reinterpret(U value) {
    static_assert(sizeof(T) == sizeof(U));
    T result;
    std::memcpy(&result, &value, sizeof(T));
    return result;
}

/// From the definition of binary16.
inline double DecodeHalf(uint64_t half) {
    const double sign = half & 0x8000 ? -1.0 : 1.0;
    const int exponent = int(half >> 10) & 31;
    const double mantissa = double(half & 1023);
    if (exponent == 31)
        return sign * (mantissa != 0 ? std::nan("") : HUGE_VAL);
    return sign * (exponent == 0 ? std::ldexp(mantissa, -24) : std::ldexp(1024 + mantissa, exponent - 25));
}

/// Truncates towards zero. NaN keeps the ten highest bits of its mantissa.
inline uint64_t EncodeHalf(float value) {
    const uint64_t sign = std::signbit(value) ? 0x8000 : 0;
    if (std::isnan(value))
        return sign | 0x7C00 | ((Reinterpret<uint32_t>(value) & 0x7FFFFF) >> 13);
    const double magnitude = std::fabs(double(value));
    if (magnitude >= 65536)
        return sign | 0x7C00;
    if (magnitude < std::ldexp(1, -14))
        return sign | uint64_t(std::floor(std::ldexp(magnitude, 24)));
    int exponent = 0;
    const double fraction = std::frexp(magnitude, &exponent);  // 0.5 ... 1
    return sign | (uint64_t(exponent + 14) << 10) | (uint64_t(std::floor(std::ldexp(fraction, 11))) - 1024);
}

inline Exact DecodeFloat(ComponentType type, uint64_t raw) {
    if (type == F16)
        return DecodeHalf(raw);
    return type == F32 ? Exact(Reinterpret<float>(uint32_t(raw))) : Exact(Reinterpret<double>(raw));
}
inline uint64_t EncodeFloat(ComponentType type, Exact value) {
    const bool isNan = value != value;
    if (type == F64)
        return Reinterpret<uint64_t>(double(value));
    // Limits before the step to half; NaN has none.
    const Exact limited = isNan || type == F32 ? value
                          : value > 65500      ? Exact(65500)
                          : value < -65500     ? Exact(-65500)
                                               : value;
    const auto narrow = float(limited);
    return type == F32 ? Reinterpret<uint32_t>(narrow) : EncodeHalf(narrow);
}

inline Wide FloorDiv(Wide a, Wide b) { return a / b - (a % b < 0); }
inline Wide Mod(Wide a, Wide b) { return a - FloorDiv(a, b) * b; }

inline Wide DecodeInteger(ComponentType type, uint64_t raw) {
    const Wide range = Wide(1) << GetComponentBits(type);
    const Wide value = raw;
    return IsSigned(type) && value >= range / 2 ? value - range : value;
}

/// The table's cell for two integer types, before the reduction modulo the destination's width.
inline Wide IntegerCell(ComponentType src, ComponentType dst, Wide v) {
    constexpr Wide k31 = Wide(1) << 31, k32 = Wide(1) << 32;
    const auto d = int(dst);
    switch (src) {
        case U8:
            return (Wide[]){v, v - 128, v * 256 + v, v * 257 - 32768, v * 16843009, v * 16843009 + k31}[d];
        case S8: {
            const Wide low = Mod(v - 128, 256);
            return (Wide[]){v - 128, v, low * 257, v * 257, low * 16843009, v * 16843009}[d];
        }
        case U16: {
            const Wide high = v / 256;
            return (Wide[]){high, high - 128, v, v - 32768, v * 65537, v * 65537 + k31}[d];
        }
        case S16: {
            const Wide t = Mod(v + 32768, 65536);
            return (Wide[]){FloorDiv(v + 32768, 256), FloorDiv(v, 256), v - 32768, v, t * 65537, v * 65537}[d];
        }
        case U32:
            return (Wide[]){v / 16777216, v / 16777216 - 128, v / 65536, v / 65536, v, v + k31}[d];
        default: {
            const Wide t = Mod(v + k31, k32);
            return (Wide[]){t / 16777216, FloorDiv(v, 16777216), t / 65536, FloorDiv(v, 65536), v + k31, v}[d];
        }
    }
}

/// Product and sum are each rounded to the precision of the rule: single, or double for F64.
inline Exact ScaledAndRounded(bool isDouble, double scale, Exact f) {
    const auto round = [&](Exact x) { return isDouble ? Exact(double(x)) : Exact(float(x)); };
    return round(round(Exact(scale) * f) + Exact(0.5));
}

inline Wide FloatToIntegerCell(ComponentType src, ComponentType dst, Exact f) {
    const bool isDouble = src == F64;
    const int width = GetComponentBits(dst);
    Wide unsignedValue = 0;
    if (width == 32) {
        const Exact t = ScaledAndRounded(isDouble, isDouble ? 4294967295.0 : 4294967296.0, f);
        const Exact limit = Exact(9223372036854775808.0);
        unsignedValue = 0xFFFFFFFF;
        if (t > -1 && t < limit && t < Exact(4294967296.0))
            unsignedValue = t < 0 ? Wide(0) : Wide(t);  // between -1 and 0 truncates to 0
    } else {
        const double scale = width == 8 ? 255 : 65535;
        const Exact t = ScaledAndRounded(isDouble, scale, f);
        unsignedValue = t >= scale ? Wide(scale) : t > 0 ? Wide(t) : Wide(0);
    }
    // Signed types move by half of their range, whether that is said as - 128, + 32768 or + 0x80000000.
    return IsSigned(dst) ? unsignedValue - (Wide(1) << (width - 1)) : unsignedValue;
}

inline Exact IntegerToFloatCell(ComponentType src, bool isDouble, Wide v) {
    double factor = isDouble ? 2.3283064370807974e-10 : double(2.3283064e-10f);
    if (src == U8)
        factor = isDouble ? 0.00392156862745098 : double(0.003921569f);
    else if (src == U16)
        factor = isDouble ? 1.5259021896696422e-5 : double(1.5259022e-5f);
    else if (src != U32)
        v = Mod(v + (Wide(1) << 31), Wide(1) << 32);
    const Exact value = isDouble ? Exact(double(v)) : Exact(float(v));
    const Exact product = value * Exact(factor);
    return isDouble ? Exact(double(product)) : Exact(float(product));
}

/// @return the raw bits of the destination. NaN as a result stands for any NaN, except in halves made from F32.
inline uint64_t Convert(ComponentType src, ComponentType dst, uint64_t raw) {
    if (src == dst)
        return raw;
    if (!IsFloat(src)) {
        const Wide value = DecodeInteger(src, raw);
        if (!IsFloat(dst))
            return uint64_t(IntegerCell(src, dst, value)) & MaskOf(dst);
        return EncodeFloat(dst, IntegerToFloatCell(src, dst == F64, value));
    }
    if (src == F32 && dst == F16 && std::isnan(Reinterpret<float>(uint32_t(raw))))
        return EncodeHalf(Reinterpret<float>(uint32_t(raw)));
    const Exact value = DecodeFloat(src, raw);
    if (IsFloat(dst))
        return EncodeFloat(dst, value);
    return uint64_t(FloatToIntegerCell(src, dst, value)) & MaskOf(dst);
}

inline bool IsNan(ComponentType type, uint64_t raw) {
    if (!IsFloat(type))
        return false;
    const Exact value = DecodeFloat(type, raw);
    return value != value;
}

}  // namespace orvik::slow
