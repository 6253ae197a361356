// Conversion of contiguous values, one cell of the component table at a time. Compiled once for each instruction set:
// no ordinary include guard.

#if defined(ORVIK_PIXEL_CONVERT_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef ORVIK_PIXEL_CONVERT_INL
#undef ORVIK_PIXEL_CONVERT_INL
#else
#define ORVIK_PIXEL_CONVERT_INL
#endif

#include <algorithm>
#include <cstring>
#include <hwy/highway.h>

#include "pixel/kernels/gfx_image_pixelformat_arithmetic.h"
#include "pixel/kernels/gfx_image_pixelformat_kernels_simd.h"

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128
HWY_BEFORE_NAMESPACE();
namespace orvik::pixel::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

/// The lane that holds a component: a half lies in 16 bits.
template <class T>
using LaneOf = std::conditional_t<std::is_same_v<T, Pix16f>, uint16_t, T>;

// Components may lie at odd addresses, so they are loaded and stored as bytes.
template <class D>
HWY_INLINE hn::Vec<D> LoadAt(D d, const std::byte* from) {
    return hn::BitCast(d, hn::LoadU(hn::Repartition<uint8_t, D>(), reinterpret_cast<const uint8_t*>(from)));
}
template <class D>
HWY_INLINE void StoreAt(D d, hn::Vec<D> value, std::byte* to) {
    const hn::Repartition<uint8_t, D> bytes;
    hn::StoreU(hn::BitCast(bytes, value), bytes, reinterpret_cast<uint8_t*>(to));
}

template <class T>
inline constexpr std::make_unsigned_t<T> kSignBit = std::make_unsigned_t<T>(1) << (sizeof(T) * 8 - 1);

#if HWY_TARGET == HWY_AVX3_DL
constexpr Int kVectorBytes = 64;

/// The first bytes of a vector: all from 64 on, none from 0 down.
HWY_INLINE __mmask64 MaskOf(Int bytes) {
    return _bzhi_u64(~uint64_t(0), static_cast<unsigned>(std::clamp<Int>(bytes, 0, kVectorBytes)));
}
#endif

// --- Vectors of four widths -----------------------------------------------------------------------------------------

/// Truncates values below 2^31. What is lower than an integer, and NaN, gives no positive number.
template <class DF>
HWY_INLINE hn::Vec<hn::RebindToSigned<DF>> Truncate(DF, hn::Vec<DF> value) {
    using Integers = hn::Vec<hn::RebindToSigned<DF>>;
    // Highway's own conversion also mends results for values that are too large.
#if HWY_TARGET <= HWY_AVX3
    if constexpr (hn::MaxLanes(DF()) == 16)
        return Integers{_mm512_cvttps_epi32(value.raw)};
#endif
#if HWY_TARGET <= HWY_AVX2
    if constexpr (hn::MaxLanes(DF()) == 8)
        return Integers{_mm256_cvttps_epi32(value.raw)};
#endif
#if HWY_ARCH_X86
    if constexpr (hn::MaxLanes(DF()) <= 4)
        return Integers{_mm_cvttps_epi32(value.raw)};
#else
    return hn::ConvertTo(hn::RebindToSigned<DF>(), value);
#endif
}

/// Four vectors of 32-bit lanes as one of bytes. Negative values become 0, others fit.
template <class DI, class V = hn::Vec<DI>>
HWY_INLINE hn::Vec<hn::Repartition<uint8_t, DI>> PackBytes(DI, V a, V b, V c, V d) {
    using Bytes = hn::Vec<hn::Repartition<uint8_t, DI>>;
    // The packing instructions work within 16 bytes, so groups of four bytes are brought into order behind them.
#if HWY_TARGET <= HWY_AVX3
    if constexpr (hn::MaxLanes(DI()) == 16) {
        const __m512i order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
        return Bytes{_mm512_permutexvar_epi32(
            order, _mm512_packus_epi16(_mm512_packs_epi32(a.raw, b.raw), _mm512_packs_epi32(c.raw, d.raw)))};
    }
#elif HWY_TARGET <= HWY_AVX2
    if constexpr (hn::MaxLanes(DI()) == 8) {
        const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
        return Bytes{_mm256_permutevar8x32_epi32(
            _mm256_packus_epi16(_mm256_packs_epi32(a.raw, b.raw), _mm256_packs_epi32(c.raw, d.raw)), order)};
    }
#elif HWY_ARCH_X86
    return Bytes{_mm_packus_epi16(_mm_packs_epi32(a.raw, b.raw), _mm_packs_epi32(c.raw, d.raw))};
#else
    const hn::Rebind<uint8_t, DI> quarter;
    const hn::Twice<decltype(quarter)> half;
    const hn::Twice<decltype(half)> whole;
    return hn::Combine(whole, hn::Combine(half, hn::DemoteTo(quarter, d), hn::DemoteTo(quarter, c)),
                       hn::Combine(half, hn::DemoteTo(quarter, b), hn::DemoteTo(quarter, a)));
#endif
}

/// Two vectors of 32-bit lanes as one of 16 bits. Negative values become 0, others fit.
template <class DI, class V = hn::Vec<DI>>
HWY_INLINE hn::Vec<hn::Repartition<uint16_t, DI>> PackWords(DI, V a, V b) {
    using Words = hn::Vec<hn::Repartition<uint16_t, DI>>;
#if HWY_TARGET <= HWY_AVX3
    if constexpr (hn::MaxLanes(DI()) == 16) {
        const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
        return Words{_mm512_permutexvar_epi64(order, _mm512_packus_epi32(a.raw, b.raw))};
    }
#elif HWY_TARGET <= HWY_AVX2
    if constexpr (hn::MaxLanes(DI()) == 8)
        return Words{_mm256_permute4x64_epi64(_mm256_packus_epi32(a.raw, b.raw), 0xD8)};
#elif HWY_TARGET <= HWY_SSE4 && HWY_ARCH_X86
    return Words{_mm_packus_epi32(a.raw, b.raw)};
#else
    const hn::Rebind<uint16_t, DI> half;
    return hn::Combine(hn::Repartition<uint16_t, DI>(), hn::DemoteTo(half, b), hn::DemoteTo(half, a));
#endif
}

// --- Halves ----------------------------------------------------------------------------------------------------------

/// True where the machine converts halves, truncating in one direction. Signalling NaN it makes quiet.
#if HWY_TARGET <= HWY_AVX2
constexpr bool kHasHalves = true;

template <class DF>
HWY_INLINE hn::Vec<DF> MachineHalfToFloat(DF, hn::Vec<hn::Rebind<uint16_t, DF>> half) {
#if HWY_TARGET <= HWY_AVX3
    if constexpr (hn::MaxLanes(DF()) == 16)
        return hn::Vec<DF>{_mm512_cvtph_ps(half.raw)};
#endif
    if constexpr (hn::MaxLanes(DF()) == 8)
        return hn::Vec<DF>{_mm256_cvtph_ps(half.raw)};
    if constexpr (hn::MaxLanes(DF()) <= 4)
        return hn::Vec<DF>{_mm_cvtph_ps(half.raw)};
}
template <class DF>
HWY_INLINE hn::Vec<hn::Rebind<uint16_t, DF>> MachineFloatToHalf(DF, hn::Vec<DF> value) {
    using Halves = hn::Vec<hn::Rebind<uint16_t, DF>>;
    constexpr int kMode = _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC;
#if HWY_TARGET <= HWY_AVX3
    if constexpr (hn::MaxLanes(DF()) == 16)
        return Halves{_mm512_cvtps_ph(value.raw, kMode)};
#endif
    if constexpr (hn::MaxLanes(DF()) == 8)
        return Halves{_mm256_cvtps_ph(value.raw, kMode)};
    if constexpr (hn::MaxLanes(DF()) <= 4)
        return Halves{_mm_cvtps_ph(value.raw, kMode)};
}
#else
constexpr bool kHasHalves = false;

template <class DF>
hn::Vec<DF> MachineHalfToFloat(DF, hn::Vec<hn::Rebind<uint16_t, DF>>);
template <class DF>
hn::Vec<hn::Rebind<uint16_t, DF>> MachineFloatToHalf(DF, hn::Vec<DF>);
#endif

/// Whether any of the halves is no number.
template <class DH>
HWY_INLINE bool HasNan(DH dh, hn::Vec<DH> half) {
    const hn::RebindToSigned<DH> di;
    const auto magnitude = hn::BitCast(di, hn::And(half, hn::Set(dh, 0x7FFF)));
    return !hn::AllFalse(di, hn::Gt(magnitude, hn::Set(di, 0x7C00)));
}

/// Every bit of the table, whatever the half.
template <class DF>
HWY_INLINE hn::Vec<DF> HalfToFloat(DF df, hn::Vec<hn::Rebind<uint16_t, DF>> half) {
    if constexpr (kHasHalves) {
        if (!HasNan(hn::Rebind<uint16_t, DF>(), half)) [[likely]]
            return MachineHalfToFloat(df, half);
    }
    const hn::RebindToUnsigned<DF> du;
    const auto bits = hn::PromoteTo(du, half);
    const auto shifted = hn::ShiftLeft<13>(hn::And(bits, hn::Set(du, 0x7FFF)));
    const auto exponent = hn::And(shifted, hn::Set(du, 0x7C00u << 13));
    const auto normal = hn::Add(shifted, hn::Set(du, (127u - 15) << 23));
    // A subnormal becomes the mantissa of a float of its exponent, from which the leading 1 is taken off again.
    const auto small = hn::BitCast(
        du, hn::Sub(hn::BitCast(df, hn::Add(normal, hn::Set(du, 1u << 23))), hn::Set(df, 6.103515625e-05f)));
    const auto special = hn::Add(normal, hn::Set(du, (128u - 16) << 23));
    auto value = hn::IfThenElse(hn::Eq(exponent, hn::Set(du, 0x7C00u << 13)), special, normal);
    value = hn::IfThenElse(hn::Eq(exponent, hn::Zero(du)), small, value);
    return hn::BitCast(df, hn::Or(value, hn::ShiftLeft<16>(hn::And(bits, hn::Set(du, 0x8000)))));
}

/// As 32-bit lanes, by the table. NaN keeps the high bits of its mantissa.
template <class DF>
HWY_INLINE hn::Vec<hn::RebindToSigned<DF>> FloatToHalfBits(DF df, hn::Vec<DF> value) {
    const hn::RebindToUnsigned<DF> du;
    const auto high = hn::Set(df, 65500.0f), low = hn::Set(df, -65500.0f);
    const auto limited = hn::IfThenElse(hn::Gt(value, high), high, hn::IfThenElse(hn::Lt(value, low), low, value));
    const auto bits = hn::BitCast(du, limited);
    const auto magnitude = hn::And(bits, hn::Set(du, 0x7FFFFFFF));
    const auto sign = hn::ShiftLeft<15>(hn::ShiftRight<31>(bits));
    const auto isNan = hn::RebindMask(du, hn::IsNaN(value));
    const auto bias = hn::IfThenElse(isNan, hn::Set(du, 224u << 10), hn::Set(du, 112u << 10));
    const auto normal = hn::Sub(hn::ShiftRight<13>(magnitude), bias);
    const auto absolute = hn::BitCast(df, magnitude);
    const auto small = hn::BitCast(du, Truncate(df, hn::Mul(absolute, hn::Set(df, 16777216.0f))));
    const auto isSmall = hn::RebindMask(du, hn::Lt(absolute, hn::Set(df, 6.103515625e-05f)));
    const auto result = hn::Or(hn::IfThenElse(isSmall, small, normal), sign);
    return hn::BitCast(hn::RebindToSigned<DF>(), result);
}

/// Limits two vectors to the range of halves and truncates them to one of halves.
/// @tparam kIsOrdinary  the values are numbers within the range
template <bool kIsOrdinary, class DF>
HWY_INLINE hn::Vec<hn::Repartition<uint16_t, DF>> FloatsToHalves(DF df, hn::Vec<DF> a, hn::Vec<DF> b) {
    const hn::Repartition<uint16_t, DF> dh;
    if constexpr (kHasHalves) {
        const auto half = hn::Combine(dh, MachineFloatToHalf(df, b), MachineFloatToHalf(df, a));
        if constexpr (kIsOrdinary)
            return half;
        // 65500 truncates to 0x7BFE, so limiting the halves gives the same as limiting the floats.
        const auto magnitude = hn::Min(hn::And(half, hn::Set(dh, 0x7FFF)), hn::Set(dh, 0x7BFE));
        if (!HasNan(dh, half)) [[likely]]
            return hn::Or(magnitude, hn::And(half, hn::Set(dh, 0x8000)));
    }
    return PackWords(hn::RebindToSigned<DF>(), FloatToHalfBits(df, a), FloatToHalfBits(df, b));
}

// --- Values as floats ------------------------------------------------------------------------------------------------

/// float(u), rounded once.
template <class DF>
HWY_INLINE hn::Vec<DF> UnsignedToFloat(DF df, hn::Vec<hn::RebindToUnsigned<DF>> u) {
#if HWY_TARGET <= HWY_AVX3
    if constexpr (hn::MaxLanes(DF()) == 16)
        return hn::Vec<DF>{_mm512_cvtepu32_ps(u.raw)};
#endif
    // Both halves of the number are exact.
    const hn::RebindToUnsigned<DF> du;
    const auto low = hn::Or(hn::And(u, hn::Set(du, 0xFFFF)), hn::Set(du, 0x4B000000));  // 2^23 + low
    const auto high = hn::Or(hn::ShiftRight<16>(u), hn::Set(du, 0x53000000));           // 2^39 + high * 2^16
    return hn::Add(hn::Sub(hn::BitCast(df, high), hn::Set(df, 549764202496.0f)), hn::BitCast(df, low));
}

/// Loads integers as 32 bits, a signed one raised by 2^31 as the table has it.
template <class S, class DU>
HWY_INLINE hn::Vec<DU> LoadRaised(DU du, const std::byte* from) {
    const auto value = LoadAt(hn::Rebind<S, DU>(), from);
    if constexpr (sizeof(S) == 4 && std::is_signed_v<S>)
        return hn::Xor(hn::BitCast(du, value), hn::Set(du, 0x80000000));
    else if constexpr (sizeof(S) == 4)
        return value;
    else if constexpr (std::is_signed_v<S>)
        return hn::Xor(hn::BitCast(du, hn::PromoteTo(hn::RebindToSigned<DU>(), value)), hn::Set(du, 0x80000000));
    else
        return hn::PromoteTo(du, value);
}

/// @tparam kKeepsNan  whether the bits of a half that is no number matter
template <class S, bool kKeepsNan = false, class DF>
HWY_INLINE hn::Vec<DF> LoadAsFloat(DF df, const std::byte* from) {
    using F = hn::TFromD<DF>;
    if constexpr (std::is_same_v<S, F>) {
        return LoadAt(df, from);
    } else if constexpr (std::is_same_v<F, double> && !std::is_integral_v<S>) {
        const hn::Rebind<float, DF> narrow;
        return hn::PromoteTo(df, LoadAsFloat<S>(narrow, from));
    } else if constexpr (std::is_same_v<S, Pix16f>) {
        const auto half = LoadAt(hn::Rebind<uint16_t, DF>(), from);
        if constexpr (kHasHalves && !kKeepsNan)
            return MachineHalfToFloat(df, half);
        else
            return HalfToFloat(df, half);
    } else if constexpr (std::is_same_v<S, double>) {
        const hn::Half<DF> half;
        const hn::Repartition<double, DF> wide;
        return hn::Combine(df, hn::DemoteTo(half, LoadAt(wide, from + hn::Lanes(wide) * sizeof(double))),
                           hn::DemoteTo(half, LoadAt(wide, from)));
    } else {
        const hn::Rebind<int32_t, DF> di;
        const hn::Rebind<uint32_t, DF> du;
        const auto raised = LoadRaised<S>(du, from);
        // The factors are what the scalar form makes of 1.
        if constexpr (sizeof(S) < 4 && std::is_unsigned_v<S>) {
            const auto factor = hn::Set(df, IntegerToFloat<F>(S(1)));
            if constexpr (std::is_same_v<F, double>)
                return hn::Mul(hn::PromoteTo(df, hn::BitCast(di, raised)), factor);
            else
                return hn::Mul(hn::ConvertTo(df, hn::BitCast(di, raised)), factor);
        } else {
            const auto factor = hn::Set(df, IntegerToFloat<F>(Pix32u(1)));
            if constexpr (std::is_same_v<F, double>) {
                const auto lowered = hn::BitCast(di, hn::Xor(raised, hn::Set(du, 0x80000000)));
                return hn::Mul(hn::Add(hn::PromoteTo(df, lowered), hn::Set(df, 2147483648.0)), factor);
            } else {
                return hn::Mul(UnsignedToFloat(df, raised), factor);
            }
        }
    }
}

// --- Floats as values ------------------------------------------------------------------------------------------------

/// scale * value + 0.5, at most scale, truncated. What is below 0 or NaN gives a negative number or 0.
template <class DF>
HWY_INLINE hn::Vec<hn::Rebind<int32_t, DF>> ScaleAndLimit(DF df, hn::Vec<DF> value, hn::TFromD<DF> scale) {
    using F = hn::TFromD<DF>;
    const auto limit = hn::Set(df, scale);
    const auto scaled = hn::Add(hn::Mul(value, limit), hn::Set(df, F(0.5)));
    const auto cut = hn::Min(limit, scaled);  // in this order NaN passes on machines where it becomes negative
    if constexpr (sizeof(F) == 4) {
        return Truncate(df, cut);
    } else {
        const hn::Rebind<int32_t, DF> di;
#if HWY_TARGET <= HWY_AVX3
        if constexpr (hn::MaxLanes(DF()) == 8)
            return hn::Vec<decltype(di)>{_mm512_cvttpd_epi32(cut.raw)};
#endif
#if HWY_TARGET <= HWY_AVX2
        if constexpr (hn::MaxLanes(DF()) == 4)
            return hn::Vec<decltype(di)>{_mm256_cvttpd_epi32(cut.raw)};
#endif
        return hn::DemoteTo(di, hn::IfThenElseZero(hn::Gt(scaled, hn::Zero(df)), cut));
    }
}

/// A vector of 32-bit lanes from floats of any width, scaled and limited.
template <class S, class DI>
HWY_INLINE hn::Vec<DI> LoadLimited(DI di, const std::byte* from, int scale) {
    if constexpr (std::is_same_v<S, double>) {
        const hn::Repartition<double, DI> df;
        const auto load = [&](const std::byte* at)
                              HWY_ATTR { return ScaleAndLimit(df, LoadAt(df, at), double(scale)); };
        return hn::Combine(di, load(from + hn::Lanes(df) * sizeof(double)), load(from));
    } else {
        const hn::RebindToFloat<DI> df;
        return ScaleAndLimit(df, LoadAsFloat<S>(df, from), float(scale));
    }
}

/// As `ToU32`: what is not above -1, too large or NaN gives the largest number.
template <class DF>
HWY_INLINE hn::Vec<hn::Rebind<uint32_t, DF>> ToUnsigned(DF df, hn::Vec<DF> value) {
    const hn::Rebind<uint32_t, DF> du;
    if constexpr (sizeof(hn::TFromD<DF>) == 8) {
        const auto largest = hn::Set(df, 4294967295.0);
        const auto t = hn::Add(hn::Mul(value, largest), hn::Set(df, 0.5));
#if HWY_TARGET <= HWY_AVX3
        if constexpr (hn::MaxLanes(DF()) == 8)
            return hn::Vec<decltype(du)>{_mm512_cvttpd_epu32(t.raw)};  // as wanted for all values
#endif
        const auto fits = hn::And(hn::Gt(t, hn::Set(df, -1.0)), hn::Lt(t, hn::Set(df, 4294967296.0)));
        const auto whole = hn::IfThenElse(fits, hn::Trunc(t), largest);
        const hn::Rebind<uint64_t, DF> wide;
        return hn::TruncateTo(du, hn::BitCast(wide, hn::Add(whole, hn::Set(df, 4503599627370496.0))));  // 2^52
    } else {
        const auto half = hn::Set(df, 2147483648.0f);
        const auto t = hn::Add(hn::Mul(value, hn::Set(df, 4294967296.0f)), hn::Set(df, 0.5f));
#if HWY_TARGET <= HWY_AVX3
        if constexpr (hn::MaxLanes(DF()) == 16)
            return hn::Vec<decltype(du)>{_mm512_cvttps_epu32(t.raw)};
#endif
        const auto fits = hn::And(hn::Gt(t, hn::Set(df, -1.0f)), hn::Lt(t, hn::Set(df, 4294967296.0f)));
        const auto isBig = hn::Ge(t, half);
        const auto low = hn::ConvertTo(hn::Rebind<int32_t, DF>(), hn::Sub(t, hn::IfThenElseZero(isBig, half)));
        const auto top = hn::IfThenElseZero(hn::RebindMask(du, isBig), hn::Set(du, 0x80000000));
        return hn::IfThenElse(hn::RebindMask(du, fits), hn::Xor(hn::BitCast(du, low), top), hn::Set(du, 0xFFFFFFFF));
    }
}

/// A whole vector of `D`, one side or both of which are floats.
template <class S, class D, class DD>
HWY_INLINE hn::Vec<DD> ConvertFloats(DD to, const std::byte* from) {
    if constexpr (std::is_same_v<D, float> || std::is_same_v<D, double>) {
        return LoadAsFloat<S, true>(to, from);
    } else if constexpr (std::is_same_v<D, Pix16f>) {
        const hn::Repartition<float, DD> df;
        return FloatsToHalves<std::is_integral_v<S>>(df, LoadAsFloat<S>(df, from),
                                                     LoadAsFloat<S>(df, from + hn::Lanes(df) * sizeof(S)));
    } else if constexpr (sizeof(D) == 4) {
        const hn::RebindToUnsigned<DD> du;
        const auto value = [&]() HWY_ATTR {
            if constexpr (std::is_same_v<S, double>) {
                const hn::Repartition<double, DD> df;
                const auto load = [&](const std::byte* at) HWY_ATTR { return ToUnsigned(df, LoadAt(df, at)); };
                return hn::Combine(du, load(from + hn::Lanes(df) * sizeof(double)), load(from));
            } else {
                const hn::RebindToFloat<DD> df;
                return ToUnsigned(df, LoadAsFloat<S>(df, from));
            }
        }();
        return hn::BitCast(to, std::is_signed_v<D> ? hn::Xor(value, hn::Set(du, 0x80000000)) : value);
    } else {
        const hn::Repartition<int32_t, DD> di;
        const hn::RebindToUnsigned<DD> du;
        const auto load = [&](int part) HWY_ATTR {
            const Int lanes = static_cast<Int>(hn::Lanes(di));
            return LoadLimited<S>(di, from + part * lanes * Int(sizeof(S)), sizeof(D) == 1 ? 255 : 65535);
        };
        const auto value = [&]() HWY_ATTR {
            if constexpr (sizeof(D) == 1)
                return PackBytes(di, load(0), load(1), load(2), load(3));
            else
                return PackWords(di, load(0), load(1));
        }();
        return hn::BitCast(to, std::is_signed_v<D> ? hn::Xor(value, hn::Set(du, kSignBit<D>)) : value);
    }
}

// --- Integers --------------------------------------------------------------------------------------------------------

/// The high bits of wider integers, as a vector of `D`.
template <class S, class DU>
HWY_INLINE hn::Vec<DU> LoadHighBits(DU du, const std::byte* from) {
    const hn::Repartition<std::make_unsigned_t<S>, DU> wide;
    const auto half = hn::Lanes(wide) * sizeof(S);
#if HWY_TARGET <= HWY_AVX3
    if constexpr (sizeof(S) == 2 && hn::MaxLanes(DU()) == 64) {
        const auto narrow = [&](const std::byte* at) HWY_ATTR {
            return hn::Vec256<uint8_t>{_mm512_cvtepi16_epi8(hn::ShiftRight<8>(LoadAt(wide, at)).raw)};
        };
        return hn::Combine(du, narrow(from + half), narrow(from));
    }
#endif
    if constexpr (sizeof(S) == 2 * sizeof(hn::TFromD<DU>)) {
        return hn::ConcatOdd(du, hn::BitCast(du, LoadAt(wide, from + half)), hn::BitCast(du, LoadAt(wide, from)));
    } else {
        const hn::Repartition<uint16_t, DU> middle;
        return hn::ConcatOdd(du, hn::BitCast(du, LoadHighBits<S>(middle, from + 2 * half)),
                             hn::BitCast(du, LoadHighBits<S>(middle, from)));
    }
}

/// A whole vector of `D`.
template <class S, class D, class DD>
HWY_INLINE hn::Vec<DD> ConvertIntegers(DD to, const std::byte* from) {
    const hn::RebindToUnsigned<DD> du;
    constexpr bool kSrcSigned = std::is_signed_v<S>, kDstSigned = std::is_signed_v<D>;
    if constexpr (sizeof(S) > sizeof(D)) {
        constexpr bool kMovesMiddle = kSrcSigned != kDstSigned && !(std::is_same_v<S, Pix32u> && sizeof(D) == 2);
        const auto high = LoadHighBits<S>(du, from);
        return hn::BitCast(to, kMovesMiddle ? hn::Xor(high, hn::Set(du, kSignBit<D>)) : high);
    } else if constexpr (sizeof(S) == sizeof(D)) {
        return hn::BitCast(to, hn::Xor(LoadAt(du, from), hn::Set(du, kSignBit<D>)));
    } else {
        auto value = [&] {
            const hn::Rebind<S, DD> narrow;
            const hn::RebindToUnsigned<decltype(narrow)> bits;
            if constexpr (kSrcSigned && kDstSigned)
                return hn::BitCast(du, hn::PromoteTo(to, LoadAt(narrow, from)));
            else if constexpr (kSrcSigned)
                return hn::PromoteTo(du, hn::Xor(LoadAt(bits, from), hn::Set(bits, kSignBit<S>)));
            else
                return hn::PromoteTo(du, LoadAt(bits, from));
        }();
        value = hn::Add(value, hn::ShiftLeft<sizeof(S) * 8>(value));
        if constexpr (sizeof(D) == 4 * sizeof(S))
            value = hn::Add(value, hn::ShiftLeft<16>(value));
        return hn::BitCast(to, kSrcSigned || !kDstSigned ? value : hn::Xor(value, hn::Set(du, kSignBit<D>)));
    }
}

// --- Runs ------------------------------------------------------------------------------------------------------------

/// A whole vector of `D` from as many values of `S`.
template <class S, class D, class DD>
HWY_INLINE hn::Vec<DD> Convert(DD to, const std::byte* from) {
    if constexpr (std::is_integral_v<S> && std::is_integral_v<D>)
        return ConvertIntegers<S, D>(to, from);
    else
        return ConvertFloats<S, D>(to, from);
}

template <class S, class D>
void ConvertRun(const std::byte* src, std::byte* dst, Int count) {
    constexpr Int kFew = 4;  // up to here single values are faster
    constexpr Int kSrc = sizeof(S), kDst = sizeof(D);
    const hn::ScalableTag<LaneOf<D>> to;
    const Int step = static_cast<Int>(hn::Lanes(to));
    if (count >= step) [[likely]] {
        // The last vector may overlap the one before. It is read before anything is written, for runs in place.
        const auto last = Convert<S, D>(to, src + (count - step) * kSrc);
        for (Int i = 0; i < count - step; i += step)
            StoreAt(to, Convert<S, D>(to, src + i * kSrc), dst + i * kDst);
        StoreAt(to, last, dst + (count - step) * kDst);
    } else if (count > kFew) {
        alignas(HWY_MAX_BYTES) std::byte from[HWY_MAX_BYTES / kDst * kSrc] = {}, result[HWY_MAX_BYTES];
        std::memcpy(from, src, static_cast<size_t>(count * kSrc));
        StoreAt(to, Convert<S, D>(to, from), result);
        std::memcpy(dst, result, static_cast<size_t>(count * kDst));
    } else {
        for (Int i = 0; i < count; ++i) {
            S value;
            std::memcpy(&value, src + i * kSrc, sizeof(S));
            const D result = ConvertComponent<D>(value);
            std::memcpy(dst + i * kDst, &result, sizeof(D));
        }
    }
}

template <int S, int... D>
void SetRow(KernelSet& set, std::integer_sequence<int, D...>) {
    const auto cell = [&set]<int To>(std::integral_constant<int, To>) {
        if constexpr (S != To)  // equal types are a plain copy
            set.run[S][To] = &ConvertRun<ComponentAtT<S>, ComponentAtT<To>>;
    };
    (cell(std::integral_constant<int, D>()), ...);
}
template <int... S>
void SetRows(KernelSet& set, std::integer_sequence<int, S...>) {
    (SetRow<S>(set, std::make_integer_sequence<int, kComponentTypeCount>()), ...);
}

}  // namespace orvik::pixel::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif
#endif
