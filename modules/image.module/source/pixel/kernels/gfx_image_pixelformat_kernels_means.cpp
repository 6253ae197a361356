// Means of colours, compiled once for each instruction set.

#include "pixel/kernels/gfx_image_pixelformat_kernels_targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "pixel/kernels/gfx_image_pixelformat_kernels_means.cpp"
#include <hwy/foreach_target.h>

#include "pixel/kernels/gfx_image_pixelformat_kernels_convert_inl.h"

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128
HWY_BEFORE_NAMESPACE();
namespace orvik::pixel::HWY_NAMESPACE {

/// Means of whole vectors.
template <class T, class DT, class V = hn::Vec<DT>>
HWY_INLINE V MeanOf(DT d, V red, V green, V blue) {
    if constexpr (std::is_floating_point_v<T>) {
        return hn::Div(hn::Add(hn::Add(red, green), blue), hn::Set(d, T(3)));
    } else if constexpr (std::is_same_v<T, Pix8u>) {
        // Even and odd bytes as 16 bits; 21846 / 65536 gives sum / 3 for all sums up to 765.
        const hn::Repartition<uint16_t, DT> wide;
        const auto r = hn::BitCast(wide, red), g = hn::BitCast(wide, green), b = hn::BitCast(wide, blue);
        const auto low = hn::Set(wide, 0xFF), third = hn::Set(wide, 21846);
        const auto even = hn::Add(hn::Add(hn::And(r, low), hn::And(g, low)), hn::And(b, low));
        const auto odd = hn::Add(hn::Add(hn::ShiftRight<8>(r), hn::ShiftRight<8>(g)), hn::ShiftRight<8>(b));
        return hn::BitCast(d, hn::Or(hn::MulHigh(even, third), hn::ShiftLeft<8>(hn::MulHigh(odd, third))));
    } else {
        const hn::Half<DT> half;
        const auto low = [&](V v) HWY_ATTR { return hn::LowerHalf(half, v); };
        const auto high = [&](V v) HWY_ATTR { return hn::UpperHalf(half, v); };
        if constexpr (std::is_same_v<T, Pix16f>) {
            const hn::Repartition<float, DT> df;
            const auto widen = [&](hn::Vec<decltype(half)> v) HWY_ATTR { return HalfToFloat(df, v); };
            const auto mean = [&](const auto& part) HWY_ATTR {
                return hn::Div(hn::Add(hn::Add(widen(part(red)), widen(part(green))), widen(part(blue))),
                               hn::Set(df, 3.0f));
            };
            return FloatsToHalves<false>(df, mean(low), mean(high));
        } else if constexpr (std::is_same_v<T, Pix16u>) {
            // The sum is exact as a float; a half keeps the product away from the whole numbers.
            const hn::Repartition<float, DT> df;
            const hn::Repartition<int32_t, DT> di;
            const auto widen = [&](hn::Vec<decltype(half)> v) HWY_ATTR { return hn::PromoteTo(di, v); };
            const auto mean = [&](const auto& part) HWY_ATTR {
                const auto sum = hn::Add(hn::Add(widen(part(red)), widen(part(green))), widen(part(blue)));
                return Truncate(df,
                                hn::Mul(hn::Add(hn::ConvertTo(df, sum), hn::Set(df, 0.5f)), hn::Set(df, 0.33333334f)));
            };
            return PackWords(di, mean(low), mean(high));
        } else {
            // The same in double. Unsigned values are lowered to signed ones; signed ones truncate towards zero.
            static_assert(sizeof(T) == 4);
            const hn::Repartition<double, DT> df;
            const hn::Half<hn::Repartition<int32_t, DT>> di;
            const hn::RebindToUnsigned<decltype(di)> du;
            const auto flip = hn::Set(du, std::is_signed_v<T> ? 0 : 0x80000000);
            const auto widen = [&](hn::Vec<decltype(half)> v) HWY_ATTR {
                return hn::PromoteTo(df, hn::BitCast(di, hn::Xor(hn::BitCast(du, v), flip)));
            };
            const auto mean = [&](const auto& part) HWY_ATTR {
                auto sum = hn::Add(hn::Add(widen(part(red)), widen(part(green))), widen(part(blue)));
                if constexpr (std::is_unsigned_v<T>)
                    sum = hn::Add(sum, hn::Set(df, 3 * 2147483648.0));
                const auto nudged = hn::Add(sum, hn::CopySign(hn::Set(df, 0.5), sum));
                auto third = hn::Trunc(hn::Mul(nudged, hn::Set(df, 1.0 / 3)));
                if constexpr (std::is_unsigned_v<T>)
                    third = hn::Sub(third, hn::Set(df, 2147483648.0));
                return hn::BitCast(half, hn::Xor(hn::BitCast(du, hn::DemoteTo(di, third)), flip));
            };
            return hn::Combine(d, mean(high), mean(low));
        }
    }
}

template <class T>
void MeanRun(const std::byte* red, const std::byte* green, const std::byte* blue, std::byte* dst, Int count) {
    constexpr Int kSize = sizeof(T);
    const hn::ScalableTag<LaneOf<T>> d;
    const Int step = static_cast<Int>(hn::Lanes(d));
    const auto store = [&](Int i) HWY_ATTR {
        StoreAt(d, MeanOf<T>(d, LoadAt(d, red + i * kSize), LoadAt(d, green + i * kSize), LoadAt(d, blue + i * kSize)),
                dst + i * kSize);
    };
    if (count >= step) {
        for (Int i = 0; i < count - step; i += step)
            store(i);
        store(count - step);  // may overlap the one before
        return;
    }
    for (Int i = 0; i < count; ++i) {
        T r, g, b;
        std::memcpy(&r, red + i * kSize, kSize);
        std::memcpy(&g, green + i * kSize, kSize);
        std::memcpy(&b, blue + i * kSize, kSize);
        const T mean = MeanOfColors(r, g, b);
        std::memcpy(dst + i * kSize, &mean, kSize);
    }
}

#if HWY_TARGET == HWY_AVX3_DL
/// A vector of each colour is gathered from the three or four vectors that their pixels fill.
template <class T, int Channels>
void MeanOfPixels(const MeanTable& table, const std::byte* src, std::byte* dst, Int count) {
    const hn::ScalableTag<LaneOf<T>> d;
    constexpr Int kPixel = Channels * sizeof(T), kPixels = kVectorBytes / sizeof(T);
    __m512i from[3];
    __mmask64 high[3];
    for (int i = 0; i < 3; ++i) {
        from[i] = _mm512_loadu_si512(table.picks[i]);
        high[i] = _mm512_movepi8_mask(from[i]);
    }
    const auto mean = [&](const __m512i* window) HWY_ATTR {
        const auto color = [&](int i) HWY_ATTR {
            const __m512i low = _mm512_permutex2var_epi8(window[0], from[i], window[1]);
            const __m512i all =
                Channels == 3 ? _mm512_mask_permutexvar_epi8(low, high[i], from[i], window[2])
                              : _mm512_mask_mov_epi8(
                                    low, high[i], _mm512_permutex2var_epi8(window[2], from[i], window[Channels - 1]));
            return hn::BitCast(d, hn::Vec512<uint8_t>{all});
        };
        return hn::BitCast(hn::ScalableTag<uint8_t>(), MeanOf<T>(d, color(0), color(1), color(2))).raw;
    };
    __m512i window[Channels];
    for (; count >= kPixels; count -= kPixels, src += kPixels * kPixel, dst += kVectorBytes) {
        for (int w = 0; w < Channels; ++w)
            window[w] = _mm512_loadu_si512(src + w * kVectorBytes);
        _mm512_storeu_si512(dst, mean(window));
    }
    if (count > 0) {
        for (int w = 0; w < Channels; ++w)
            window[w] = _mm512_maskz_loadu_epi8(MaskOf(count * kPixel - w * kVectorBytes), src + w * kVectorBytes);
        _mm512_mask_storeu_epi8(dst, MaskOf(count * Int(sizeof(T))), mean(window));
    }
}
#endif

template <ComponentType Type>
void SetMean(KernelSet& set) {
    using T = ComponentAtT<static_cast<int>(Type)>;
    set.mean[static_cast<int>(Type)] = &MeanRun<T>;
#if HWY_TARGET == HWY_AVX3_DL
    set.meanOfPixels[static_cast<int>(Type)][0] = &MeanOfPixels<T, 3>;
    set.meanOfPixels[static_cast<int>(Type)][1] = &MeanOfPixels<T, 4>;
#endif
}

void SetMeanKernels(KernelSet& set) {
    // The formats whose colours may become grey have these types.
    SetMean<ComponentType::U8>(set);
    SetMean<ComponentType::U16>(set);
    SetMean<ComponentType::U32>(set);
    SetMean<ComponentType::S32>(set);
    SetMean<ComponentType::F16>(set);
    SetMean<ComponentType::F32>(set);
    SetMean<ComponentType::F64>(set);
}

}  // namespace orvik::pixel::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace orvik::pixel {

SetKernelsFunction GetMeanKernels(int64_t target) { ORVIK_KERNELS_OF_TARGET(SetMeanKernels) }

}  // namespace orvik::pixel
#endif
