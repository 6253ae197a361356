// Conversion of contiguous values, one cell of the component table at a time. Compiled once for each instruction set:
// no ordinary include guard.

#if defined(ORVIK_PIXEL_CONVERT_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef ORVIK_PIXEL_CONVERT_INL
#undef ORVIK_PIXEL_CONVERT_INL
#else
#define ORVIK_PIXEL_CONVERT_INL
#endif

#include <cstring>
#include <hwy/highway.h>

#include "gfx_image_pixelformat_arithmetic.h"
#include "gfx_image_pixelformat_kernels_simd.h"

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

// --- Halves
// ----------------------------------------------------------------------------------------------------------

template <class DF>
HWY_INLINE hn::Vec<DF> HalfToFloat(DF df, hn::Vec<hn::Rebind<uint16_t, DF>> half) {
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

/// Limits to what may become a half; NaN passes.
template <class DF>
HWY_INLINE hn::Vec<DF> LimitToHalf(DF df, hn::Vec<DF> value) {
    using F = hn::TFromD<DF>;
    const auto high = hn::Set(df, F(65500)), low = hn::Set(df, F(-65500));
    return hn::IfThenElse(hn::Gt(value, high), high, hn::IfThenElse(hn::Lt(value, low), low, value));
}

/// Truncates values that fit. Highway's own conversion also mends results for those that do not.
template <class DF>
HWY_INLINE hn::Vec<hn::RebindToSigned<DF>> Truncate(DF, hn::Vec<DF> value) {
#if HWY_TARGET <= HWY_AVX3
    if constexpr (hn::MaxLanes(DF()) == 16)
        return hn::Vec<hn::RebindToSigned<DF>>{_mm512_cvttps_epi32(value.raw)};
    else
#endif
#if HWY_TARGET <= HWY_AVX2
        if constexpr (hn::MaxLanes(DF()) == 8)
        return hn::Vec<hn::RebindToSigned<DF>>{_mm256_cvttps_epi32(value.raw)};
    else
#endif
        return hn::ConvertTo(hn::RebindToSigned<DF>(), value);
}

/// The low bits of 32-bit lanes, which fit the narrower type.
template <class D, class V>
HWY_INLINE hn::Vec<D> Narrow(D to, V value) {
#if HWY_TARGET <= HWY_AVX3
    if constexpr (hn::MaxLanes(D()) == 16 && sizeof(hn::TFromD<D>) == 1)
        return hn::Vec<D>{_mm512_cvtepi32_epi8(value.raw)};
    else if constexpr (hn::MaxLanes(D()) == 16)
        return hn::Vec<D>{_mm512_cvtepi32_epi16(value.raw)};
    else
#endif
        return hn::DemoteTo(to, value);
}

/// Truncates. The value is limited or NaN.
template <class DF>
HWY_INLINE hn::Vec<hn::Rebind<uint16_t, DF>> FloatToHalf(DF df, hn::Vec<DF> value) {
#if HWY_TARGET <= HWY_AVX3
    // The machine truncates too, but changes NaN.
    if constexpr (hn::MaxLanes(DF()) == 16) {
        if (hn::AllFalse(df, hn::IsNaN(value))) [[likely]]
            return hn::Vec<hn::Rebind<uint16_t, DF>>{
                _mm512_cvtps_ph(value.raw, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC)};
    }
#endif
#if HWY_TARGET <= HWY_AVX2
    if constexpr (hn::MaxLanes(DF()) == 8) {
        if (hn::AllFalse(df, hn::IsNaN(value))) [[likely]]
            return hn::Vec<hn::Rebind<uint16_t, DF>>{
                _mm256_cvtps_ph(value.raw, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC)};
    }
#endif
    const hn::RebindToUnsigned<DF> du;
    const hn::RebindToSigned<DF> di;
    const auto bits = hn::BitCast(du, value);
    const auto magnitude = hn::And(bits, hn::Set(du, 0x7FFFFFFF));
    const auto sign = hn::ShiftLeft<15>(hn::ShiftRight<31>(bits));
    // NaN keeps the high bits of its mantissa.
    const auto isNan = hn::RebindMask(du, hn::IsNaN(value));
    const auto bias = hn::IfThenElse(isNan, hn::Set(du, 224u << 10), hn::Set(du, 112u << 10));
    const auto normal = hn::Sub(hn::ShiftRight<13>(magnitude), bias);
    const auto absolute = hn::BitCast(df, magnitude);
    const auto small = hn::BitCast(du, Truncate(df, hn::Mul(absolute, hn::Set(df, 16777216.0f))));
    const auto isSmall = hn::RebindMask(du, hn::Lt(absolute, hn::Set(df, 6.103515625e-05f)));
    const auto result = hn::Or(hn::IfThenElse(isSmall, small, normal), sign);
    return Narrow(hn::Rebind<uint16_t, DF>(), hn::BitCast(di, result));
}

// --- Values as floats
// ------------------------------------------------------------------------------------------------

/// float(u), rounded once: both halves of the number are exact.
template <class DF>
HWY_INLINE hn::Vec<DF> UnsignedToFloat(DF df, hn::Vec<hn::RebindToUnsigned<DF>> u) {
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

template <class S, class DF>
HWY_INLINE hn::Vec<DF> LoadAsFloat(DF df, const std::byte* from) {
    using F = hn::TFromD<DF>;
    if constexpr (std::is_same_v<S, F>) {
        return LoadAt(df, from);
    } else if constexpr (std::is_same_v<F, double> && !std::is_integral_v<S>) {
        const hn::Rebind<float, DF> narrow;
        return hn::PromoteTo(df, LoadAsFloat<S>(narrow, from));
    } else if constexpr (std::is_same_v<S, Pix16f>) {
        return HalfToFloat(df, LoadAt(hn::Rebind<uint16_t, DF>(), from));
    } else if constexpr (std::is_same_v<S, double>) {
        return hn::DemoteTo(df, LoadAt(hn::Rebind<double, DF>(), from));
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

// --- Floats as values
// ------------------------------------------------------------------------------------------------

/// scale * value + 0.5, cut to 0 ... scale and truncated. NaN gives 0.
template <class DF>
HWY_INLINE hn::Vec<hn::Rebind<int32_t, DF>> ScaleAndClamp(DF df, hn::Vec<DF> value, hn::TFromD<DF> scale) {
    using F = hn::TFromD<DF>;
    const auto limit = hn::Set(df, scale);
    const auto scaled = hn::Add(hn::Mul(value, limit), hn::Set(df, F(0.5)));
    const auto positive = hn::IfThenElseZero(hn::Gt(scaled, hn::Zero(df)), scaled);
    const auto cut = hn::Min(positive, limit);
    const hn::Rebind<int32_t, DF> di;
    if constexpr (sizeof(F) == 8)
        return hn::DemoteTo(di, cut);
    else
        return Truncate(df, cut);
}

/// As `ToU32`: what is below -1, too large or NaN gives the largest number.
template <class DF>
HWY_INLINE hn::Vec<hn::Rebind<uint32_t, DF>> ToUnsigned(DF df, hn::Vec<DF> value) {
    const hn::Rebind<uint32_t, DF> du;
    if constexpr (sizeof(hn::TFromD<DF>) == 8) {
        const auto largest = hn::Set(df, 4294967295.0);
        const auto t = hn::Add(hn::Mul(value, largest), hn::Set(df, 0.5));
        const auto fits = hn::And(hn::Gt(t, hn::Set(df, -1.0)), hn::Lt(t, hn::Set(df, 4294967296.0)));
        const auto whole = hn::IfThenElse(fits, hn::Trunc(t), largest);
        const hn::Rebind<uint64_t, DF> wide;
        return hn::TruncateTo(du, hn::BitCast(wide, hn::Add(whole, hn::Set(df, 4503599627370496.0))));  // 2^52
    } else {
        const auto half = hn::Set(df, 2147483648.0f);
        const auto t = hn::Add(hn::Mul(value, hn::Set(df, 4294967296.0f)), hn::Set(df, 0.5f));
        const auto fits = hn::And(hn::Gt(t, hn::Set(df, -1.0f)), hn::Lt(t, hn::Set(df, 4294967296.0f)));
        const auto isBig = hn::Ge(t, half);
        const auto low = hn::ConvertTo(hn::Rebind<int32_t, DF>(), hn::Sub(t, hn::IfThenElseZero(isBig, half)));
        const auto top = hn::IfThenElseZero(hn::RebindMask(du, isBig), hn::Set(du, 0x80000000));
        return hn::IfThenElse(hn::RebindMask(du, fits), hn::Xor(hn::BitCast(du, low), top), hn::Set(du, 0xFFFFFFFF));
    }
}

template <class D, class DF>
HWY_INLINE hn::Vec<hn::Rebind<LaneOf<D>, DF>> FromFloat(DF df, hn::Vec<DF> value) {
    using F = hn::TFromD<DF>;
    const hn::Rebind<LaneOf<D>, DF> to;
    const hn::Rebind<int32_t, DF> di;
    if constexpr (std::is_same_v<D, F>) {
        return value;
    } else if constexpr (std::is_same_v<D, Pix16f>) {
        const auto limited = LimitToHalf(df, value);
        if constexpr (sizeof(F) == 8) {
            const hn::Rebind<float, DF> narrow;
            return FloatToHalf(narrow, hn::DemoteTo(narrow, limited));
        } else {
            return FloatToHalf(df, limited);
        }
    } else if constexpr (std::is_same_v<D, float>) {
        return hn::DemoteTo(to, value);
    } else if constexpr (std::is_same_v<D, Pix8u>) {
        return Narrow(to, ScaleAndClamp(df, value, F(255)));
    } else if constexpr (std::is_same_v<D, Pix16u>) {
        return Narrow(to, ScaleAndClamp(df, value, F(65535)));
    } else if constexpr (std::is_same_v<D, Pix8s>) {
        return Narrow(to, hn::Sub(ScaleAndClamp(df, value, F(255)), hn::Set(di, 128)));
    } else if constexpr (std::is_same_v<D, Pix16s>) {
        return Narrow(to, hn::Sub(ScaleAndClamp(df, value, F(65535)), hn::Set(di, 32768)));
    } else if constexpr (std::is_same_v<D, Pix32u>) {
        return ToUnsigned(df, value);
    } else {
        const hn::Rebind<uint32_t, DF> du;
        return hn::BitCast(to, hn::Xor(ToUnsigned(df, value), hn::Set(du, 0x80000000)));
    }
}

// --- Integers
// --------------------------------------------------------------------------------------------------------

template <class T>
inline constexpr std::make_unsigned_t<T> kSignBit = std::make_unsigned_t<T>(1) << (sizeof(T) * 8 - 1);

/// The high bits of wider integers, as a vector of `D`.
template <class S, class DU>
HWY_INLINE hn::Vec<DU> LoadHighBits(DU du, const std::byte* from) {
    const hn::Repartition<std::make_unsigned_t<S>, DU> wide;
    const auto half = hn::Lanes(wide) * sizeof(S);
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

// --- Runs
// ------------------------------------------------------------------------------------------------------------

template <class S, class D>
void ConvertRun(const std::byte* src, std::byte* dst, Int count) {
    constexpr bool kInteger = std::is_integral_v<S> && std::is_integral_v<D>;
    using Float = std::conditional_t<std::is_same_v<S, double> || std::is_same_v<D, double>, double, float>;
    using Lane = std::conditional_t<kInteger, LaneOf<D>, Float>;
    const hn::ScalableTag<Lane> work;
    const hn::Rebind<LaneOf<D>, decltype(work)> to;
    const Int step = static_cast<Int>(hn::Lanes(work));
    const auto convert = [&](Int at) HWY_ATTR {
        const std::byte* from = src + at * Int(sizeof(S));
        if constexpr (kInteger)
            return ConvertIntegers<S, D>(to, from);
        else
            return FromFloat<D>(work, LoadAsFloat<S>(work, from));
    };
    const auto store = [&](auto value, Int at) HWY_ATTR { StoreAt(to, value, dst + at * Int(sizeof(D))); };
    if (count < step) {
        for (Int i = 0; i < count; ++i) {
            S value;
            std::memcpy(&value, src + i * Int(sizeof(S)), sizeof(S));
            const D result = ConvertComponent<D>(value);
            std::memcpy(dst + i * Int(sizeof(D)), &result, sizeof(D));
        }
        return;
    }
    // The last vector may overlap the one before. It is read before anything is written, for runs in place.
    const auto last = convert(count - step);
    Int i = 0;
    for (; i + 4 * step <= count; i += 4 * step) {
        store(convert(i), i);
        store(convert(i + step), i + step);
        store(convert(i + 2 * step), i + 2 * step);
        store(convert(i + 3 * step), i + 3 * step);
    }
    for (; i + step <= count; i += step)
        store(convert(i), i);
    store(last, count - step);
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
