#pragma once
/// @file
/// The arithmetic of the pixel model: how a value of one component type becomes a value of another.
///
/// These scalar functions are the reference. Whatever is faster must give the same bits; the build forbids the compiler
/// to fuse multiplications and additions for that reason. No input is undefined: NaN, infinities and values far outside
/// the range have a stated result.

#include <array>
#include <bit>

#include "orvik/gfx_image_channels.h"

namespace orvik::pixel {

// --- binary16, by the table method of Jeroen van der Zijp, without a rounding step
// ------------------------------------

struct HalfEncodeTables {
    std::array<uint16_t, 512> base{};
    std::array<uint8_t, 512> shift{};
};
struct HalfDecodeTables {
    std::array<uint32_t, 64> exponent{};
    std::array<uint16_t, 64> offset{};
    std::array<uint32_t, 2048> mantissa{};
};

constexpr HalfEncodeTables MakeHalfEncodeTables() {
    HalfEncodeTables tables;
    for (int i = 0; i < 256; ++i) {
        const int e = i - 127;
        int base = 0, shift = 24;  // underflow to a signed zero
        if (e >= -24 && e < -14) {
            base = 0x0400 >> (-e - 14);  // denormals
            shift = -e - 1;
        } else if (e >= -14 && e <= 15) {
            base = (e + 15) << 10;
            shift = 13;
        } else if (e > 15) {
            base = 0x7C00;
            shift = e == 128 ? 13 : 24;  // infinity and NaN keep the high bits of the mantissa
        }
        tables.base[i] = static_cast<uint16_t>(base);
        tables.base[i + 256] = static_cast<uint16_t>(base | 0x8000);
        tables.shift[i] = tables.shift[i + 256] = static_cast<uint8_t>(shift);
    }
    return tables;
}
constexpr HalfDecodeTables MakeHalfDecodeTables() {
    HalfDecodeTables tables;
    for (uint32_t i = 1; i < 1024; ++i) {
        uint32_t mantissa = i << 13, exponent = 0x38800000;
        while (!(mantissa & 0x00800000)) {
            exponent -= 0x00800000;
            mantissa <<= 1;
        }
        tables.mantissa[i] = (mantissa & ~0x00800000u) | exponent;
    }
    for (uint32_t i = 1024; i < 2048; ++i)
        tables.mantissa[i] = 0x38000000 + ((i - 1024) << 13);
    for (uint32_t i = 0; i < 32; ++i) {
        tables.exponent[i] = i == 31 ? 0x47800000 : i << 23;
        tables.exponent[i + 32] = tables.exponent[i] | 0x80000000;
        tables.offset[i] = tables.offset[i + 32] = i == 0 ? 0 : 1024;
    }
    return tables;
}
inline constexpr HalfEncodeTables kHalfEncode = MakeHalfEncodeTables();
inline constexpr HalfDecodeTables kHalfDecode = MakeHalfDecodeTables();

/// Truncates; values beyond the range of binary16 become infinity.
constexpr Pix16f FloatToHalf(float value) {
    const uint32_t f = std::bit_cast<uint32_t>(value);
    const uint32_t i = f >> 23;
    return {static_cast<uint16_t>(kHalfEncode.base[i] + ((f & 0x7FFFFF) >> kHalfEncode.shift[i]))};
}
constexpr float HalfToFloat(Pix16f value) {
    const uint32_t h = value.bits, i = h >> 10;
    return std::bit_cast<float>(kHalfDecode.exponent[i] + kHalfDecode.mantissa[kHalfDecode.offset[i] + (h & 0x3FF)]);
}

/// Limits a value to what may become a half. NaN passes.
template <class F>
constexpr F ClampToHalfRange(F value) {
    constexpr F kLimit = F(65500);
    return value > kLimit ? kLimit : value < -kLimit ? -kLimit : value;
}

// --- Floats to integers ----------------------------------------------------------------------------------------------

/// scale * f + 0.5, cut to 0 ... scale, then truncated. NaN gives 0.
template <class F>
constexpr uint32_t ScaleAndClamp(F f, F scale) {
    const F t = scale * f + F(0.5);
    const F positive = t > F(0) ? t : F(0);  // in this form NaN becomes 0
    return static_cast<uint32_t>(static_cast<int32_t>(positive > scale ? scale : positive));
}

/// A negative value gives 0xFFFFFFFF, since the limit is an unsigned compare after the conversion to 64 bits. So does
/// what no 64-bit integer can hold, and NaN.
template <class F>
constexpr uint32_t ToU32(F f) {
    constexpr F kScale = std::is_same_v<F, double> ? F(4294967295.0) : F(4294967296.0);
    constexpr F kInt64Limit = F(9223372036854775808.0);
    const F t = kScale * f + F(0.5);
    if (!(t > -kInt64Limit && t < kInt64Limit))
        return 0xFFFFFFFF;
    const auto integer = static_cast<uint64_t>(static_cast<int64_t>(t));
    return integer > 0xFFFFFFFF ? 0xFFFFFFFF : static_cast<uint32_t>(integer);
}

template <class D, class F>
constexpr D FloatToInteger(F f) {
    if constexpr (std::is_same_v<D, Pix8u>)
        return static_cast<D>(ScaleAndClamp(f, F(255)));
    else if constexpr (std::is_same_v<D, Pix8s>)
        return static_cast<D>(ScaleAndClamp(f, F(255)) - 128);
    else if constexpr (std::is_same_v<D, Pix16u>)
        return static_cast<D>(ScaleAndClamp(f, F(65535)));
    else if constexpr (std::is_same_v<D, Pix16s>)
        return static_cast<D>((ScaleAndClamp(f, F(65535)) & 0xFFFF) + 32768);
    else if constexpr (std::is_same_v<D, Pix32u>)
        return ToU32(f);
    else
        return static_cast<D>(ToU32(f) + 0x80000000);
}

// --- Integers --------------------------------------------------------------------------------------------------------

/// The factors are the values of their type nearest to 1/255, 1/65535 and 1/4294967295.
template <class F, class S>
constexpr F IntegerToFloat(S s) {
    constexpr bool kDouble = std::is_same_v<F, double>;
    if constexpr (std::is_same_v<S, Pix8u>)
        return F(s) * (kDouble ? F(0.00392156862745098) : F(0.003921569f));
    else if constexpr (std::is_same_v<S, Pix16u>)
        return F(s) * (kDouble ? F(1.5259021896696422e-5) : F(1.5259022e-5f));
    else if constexpr (std::is_same_v<S, Pix32u>)
        return F(s) * (kDouble ? F(2.3283064370807974e-10) : F(2.3283064e-10f));
    else  // the narrow signed types are raised by 2^31 like the wide one, so all of them lie close to 0.5
        return IntegerToFloat<F>(static_cast<Pix32u>(static_cast<uint32_t>(s) + 0x80000000));
}

/// Narrowing is a shift, widening replicates, a change of sign moves the middle; modulo the destination's width.
template <class D, class S>
constexpr D IntegerToInteger(S s) {
    constexpr int kSrcBits = sizeof(S) * 8, kDstBits = sizeof(D) * 8;
    constexpr uint32_t kSrcSign = 1u << (kSrcBits - 1), kDstSign = 1u << (kDstBits - 1);
    constexpr bool kSrcSigned = std::is_signed_v<S>, kDstSigned = std::is_signed_v<D>;
    // The factor by which a value is repeated in the wider type: 0x0101, 0x01010101 or 0x00010001.
    constexpr uint32_t kReplicate = kDstBits <= kSrcBits ? 1
                                    : kDstBits == 16     ? 0x0101
                                    : kSrcBits == 8      ? 0x01010101
                                                         : 0x00010001;
    if constexpr (kSrcSigned && kDstSigned && kDstBits > kSrcBits) {
        return static_cast<D>(static_cast<uint32_t>(s) * kReplicate);  // signed, no middle to move
    } else if constexpr (kSrcSigned && kDstSigned) {
        return static_cast<D>(s >> (kSrcBits - kDstBits));
    } else if constexpr (std::is_same_v<S, Pix32u> && std::is_same_v<D, Pix16s>) {
        return static_cast<D>(s >> 16);  // without the offset that every other change of sign has
    } else {
        constexpr uint32_t kSrcMask = kSrcSign | (kSrcSign - 1);
        const uint32_t u = kSrcSigned ? (static_cast<uint32_t>(s) + kSrcSign) & kSrcMask : static_cast<uint32_t>(s);
        const uint32_t v = kDstBits < kSrcBits ? u >> (kSrcBits - kDstBits) : u * kReplicate;
        return static_cast<D>(kDstSigned ? v + kDstSign : v);
    }
}

// --- The table -------------------------------------------------------------------------------------------------------

/// One cell of the 9 x 9 table of component conversions. The diagonal is a plain copy.
template <class D, class S>
constexpr D ConvertComponent(S s) {
    if constexpr (std::is_same_v<D, S>) {
        return s;
    } else if constexpr (std::is_same_v<S, Pix16f>) {
        return ConvertComponent<D>(HalfToFloat(s));
    } else if constexpr (std::is_same_v<D, Pix16f>) {
        if constexpr (std::is_same_v<S, double>)
            return FloatToHalf(static_cast<float>(ClampToHalfRange(s)));
        else
            return FloatToHalf(ClampToHalfRange(ConvertComponent<float>(s)));
    } else if constexpr (std::is_floating_point_v<S> && std::is_floating_point_v<D>) {
        return static_cast<D>(s);  // beyond the narrower range: infinity, by IEEE 754
    } else if constexpr (std::is_floating_point_v<S>) {
        return FloatToInteger<D>(s);
    } else if constexpr (std::is_floating_point_v<D>) {
        return IntegerToFloat<D>(s);
    } else {
        return IntegerToInteger<D>(s);
    }
}

/// The mean of red, green and blue: integers are summed in 64 bits and divided with truncation, floats in their own
/// type in the order red, green, blue. Halves are summed and divided as floats and become a half again.
template <class S>
constexpr S MeanOfColors(S red, S green, S blue) {
    if constexpr (std::is_same_v<S, Pix16f>)
        return FloatToHalf(ClampToHalfRange((HalfToFloat(red) + HalfToFloat(green) + HalfToFloat(blue)) / 3.0f));
    else if constexpr (std::is_floating_point_v<S>)
        return (red + green + blue) / S(3);
    else if constexpr (std::is_signed_v<S>)
        return static_cast<S>((int64_t(red) + green + blue) / 3);
    else
        return static_cast<S>((uint64_t(red) + green + blue) / 3);
}

static_assert(ConvertComponent<Pix8u>(0.999f) == 255 && ConvertComponent<Pix8u>(0.997f) == 254);
static_assert(ConvertComponent<Pix32u>(-1.0f) == 0xFFFFFFFF && ConvertComponent<Pix8u>(-0.001f) == 0);
static_assert(FloatToHalf(65500.0f).bits == 0x7BFE && FloatToHalf(1.0f).bits == 0x3C00);

/// The types of the components in the order of `ComponentType`.
template <int I>
struct ComponentAt;
// clang-format off
template <> struct ComponentAt<0> { using Type = Pix8u; };
template <> struct ComponentAt<1> { using Type = Pix8s; };
template <> struct ComponentAt<2> { using Type = Pix16u; };
template <> struct ComponentAt<3> { using Type = Pix16s; };
template <> struct ComponentAt<4> { using Type = Pix32u; };
template <> struct ComponentAt<5> { using Type = Pix32s; };
template <> struct ComponentAt<6> { using Type = Pix16f; };
template <> struct ComponentAt<7> { using Type = Pix32f; };
template <> struct ComponentAt<8> { using Type = Pix64f; };
// clang-format on
template <int I>
using ComponentAtT = typename ComponentAt<I>::Type;

}  // namespace orvik::pixel
