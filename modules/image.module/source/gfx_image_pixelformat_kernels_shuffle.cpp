// Permutations of channels, means of colours and pairs of channels, compiled once for each instruction set.

#include "gfx_image_pixelformat_kernels_targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "gfx_image_pixelformat_kernels_shuffle.cpp"
#include <hwy/foreach_target.h>

#include "gfx_image_pixelformat_kernels_convert-inl.h"

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128
HWY_BEFORE_NAMESPACE();
namespace orvik::pixel::HWY_NAMESPACE {

// --- Permutations ----------------------------------------------------------------------------------------------------

using Bytes = hn::ScalableTag<uint8_t>;
using ByteVector = hn::Vec<Bytes>;

#if HWY_TARGET == HWY_AVX3_DL
constexpr int kLaneBytes = 64;

HWY_INLINE ByteVector LoadWindow(const std::byte* period, const int32_t (&offsets)[ShuffleTable::kMaxLanes]) {
    return LoadAt(Bytes(), period + offsets[0]);
}
/// Bytes from the whole vector; one with its top bit set gives 0.
HWY_INLINE ByteVector Pick(ByteVector window, ByteVector picks) {
    return ByteVector{
        _mm512_maskz_permutexvar_epi8(_knot_mask64(_mm512_movepi8_mask(picks.raw)), picks.raw, window.raw)};
}
#else
constexpr int kLaneBytes = 16;

template <class D>
HWY_INLINE hn::Vec<D> LoadLanes(D d, const std::byte* period, const int32_t* offsets) {
    if constexpr (hn::MaxLanes(d) == kLaneBytes) {
        return LoadAt(d, period + offsets[0]);
    } else {
        const hn::Half<D> half;
        return hn::Combine(d, LoadLanes(half, period, offsets + hn::MaxLanes(half) / kLaneBytes),
                           LoadLanes(half, period, offsets));
    }
}
HWY_INLINE ByteVector LoadWindow(const std::byte* period, const int32_t (&offsets)[ShuffleTable::kMaxLanes]) {
    return LoadLanes(Bytes(), period, offsets);
}
HWY_INLINE ByteVector Pick(ByteVector window, ByteVector picks) { return hn::TableLookupBytesOr0(window, picks); }
#endif

template <int Blocks, int Windows>
void Shuffle(const ShuffleTable& table, const std::byte* src, std::byte* dst, Int count) {
    const Bytes d;
    const Int blockBytes = static_cast<Int>(hn::Lanes(d));
    ByteVector picks[Blocks][Windows], fill[Blocks], result[Blocks], last[Blocks];
    int32_t offsets[Blocks][Windows][ShuffleTable::kMaxLanes];
    for (int b = 0; b < Blocks; ++b) {
        for (int w = 0; w < Windows; ++w) {
            picks[b][w] = hn::LoadU(d, table.picks[b][w]);
            std::memcpy(offsets[b][w], table.offsets[b][w], sizeof(offsets[b][w]));
        }
        fill[b] = hn::LoadU(d, table.fill[b]);
    }
    const auto shuffle = [&](const std::byte* period, ByteVector* to) HWY_ATTR {
        for (int b = 0; b < Blocks; ++b) {
            to[b] = fill[b];
            for (int w = 0; w < Windows; ++w)
                to[b] = hn::Or(to[b], Pick(LoadWindow(period, offsets[b][w]), picks[b][w]));
        }
    };
    const auto store = [&](const ByteVector* from, std::byte* to) HWY_ATTR {
        for (int b = 0; b < Blocks; ++b)
            StoreAt(d, from[b], to + b * blockBytes);
    };
    const Int srcStep = Int(table.pixels) * table.srcPixel, dstStep = Blocks * blockBytes;
    const Int lastPixel = count - table.pixels;
    // The last period may overlap the one before. It is read before anything is written, for runs in place.
    shuffle(src + lastPixel * table.srcPixel, last);
    std::byte* const lastDst = dst + lastPixel * table.dstPixel;
    for (; dst <= lastDst; src += srcStep, dst += dstStep) {
        shuffle(src, result);
        store(result, dst);
    }
    store(last, lastDst);
}

template <int Blocks>
void SetShuffles(KernelSet& set) {
    set.shuffle[Blocks - 1][0] = &Shuffle<Blocks, 1>;
    set.shuffle[Blocks - 1][1] = &Shuffle<Blocks, 2>;
    set.shuffle[Blocks - 1][2] = &Shuffle<Blocks, 3>;
    set.shuffle[Blocks - 1][3] = &Shuffle<Blocks, 4>;
}

// --- Means -----------------------------------------------------------------------------------------------------------

/// As many means as a vector of `work` has lanes.
template <class T, class DW>
HWY_INLINE auto MeanOf(DW work, const std::byte* red, const std::byte* green, const std::byte* blue) {
    if constexpr (std::is_same_v<T, Pix8u>) {
        // Even and odd bytes as 16 bits; 21846 / 65536 gives sum / 3 for all sums up to 765.
        const hn::Repartition<uint16_t, DW> wide;
        const auto r = hn::BitCast(wide, LoadAt(work, red)), g = hn::BitCast(wide, LoadAt(work, green)),
                   b = hn::BitCast(wide, LoadAt(work, blue));
        const auto low = hn::Set(wide, 0xFF), third = hn::Set(wide, 21846);
        const auto even = hn::Add(hn::Add(hn::And(r, low), hn::And(g, low)), hn::And(b, low));
        const auto odd = hn::Add(hn::Add(hn::ShiftRight<8>(r), hn::ShiftRight<8>(g)), hn::ShiftRight<8>(b));
        return hn::BitCast(work, hn::Or(hn::MulHigh(even, third), hn::ShiftLeft<8>(hn::MulHigh(odd, third))));
    } else if constexpr (std::is_same_v<T, Pix16u>) {
        // The sum is exact as a float; a half keeps the product away from the whole numbers.
        const hn::Rebind<uint16_t, DW> narrow;
        const hn::Rebind<int32_t, DW> di;
        const auto load = [&](const std::byte* from) HWY_ATTR { return hn::PromoteTo(di, LoadAt(narrow, from)); };
        const auto sum = hn::ConvertTo(work, hn::Add(hn::Add(load(red), load(green)), load(blue)));
        const auto third = hn::Mul(hn::Add(sum, hn::Set(work, 0.5f)), hn::Set(work, 0.33333334f));
        return hn::DemoteTo(narrow, hn::ConvertTo(di, third));
    } else if constexpr (std::is_integral_v<T>) {
        // The same in double. Signed values are lowered unsigned ones here and truncate towards zero.
        const hn::Rebind<T, DW> narrow;
        const hn::Rebind<int32_t, DW> di;
        const hn::Rebind<uint32_t, DW> du;
        const auto flip = hn::Set(du, std::is_signed_v<T> ? 0 : 0x80000000);
        const auto load = [&](const std::byte* from) HWY_ATTR {
            return hn::PromoteTo(work, hn::BitCast(di, hn::Xor(hn::BitCast(du, LoadAt(narrow, from)), flip)));
        };
        auto sum = hn::Add(hn::Add(load(red), load(green)), load(blue));
        if constexpr (std::is_unsigned_v<T>)
            sum = hn::Add(sum, hn::Set(work, 3 * 2147483648.0));
        const auto nudged = hn::Add(sum, hn::CopySign(hn::Set(work, 0.5), sum));
        const auto third = hn::Trunc(hn::Mul(nudged, hn::Set(work, 1.0 / 3)));
        if constexpr (std::is_signed_v<T>)
            return hn::DemoteTo(di, third);
        else
            return hn::Xor(hn::BitCast(du, hn::DemoteTo(di, hn::Sub(third, hn::Set(work, 2147483648.0)))), flip);
    } else {
        const auto load = [&](const std::byte* from) HWY_ATTR { return LoadAsFloat<T>(work, from); };
        const auto sum = hn::Add(hn::Add(load(red), load(green)), load(blue));
        return FromFloat<T>(work, hn::Div(sum, hn::Set(work, hn::TFromD<DW>(3))));
    }
}

template <class T>
void MeanRun(const std::byte* red, const std::byte* green, const std::byte* blue, std::byte* dst, Int count) {
    constexpr Int kSize = sizeof(T);
    constexpr bool kWide = std::is_same_v<T, double> || (std::is_integral_v<T> && sizeof(T) == 4);
    const hn::ScalableTag<
        std::conditional_t<std::is_same_v<T, Pix8u>, uint8_t, std::conditional_t<kWide, double, float>>>
        work;
    const hn::Rebind<LaneOf<T>, decltype(work)> to;
    const Int step = static_cast<Int>(hn::Lanes(work));
    Int i = 0;
    for (; i + step <= count; i += step)
        StoreAt(to, MeanOf<T>(work, red + i * kSize, green + i * kSize, blue + i * kSize), dst + i * kSize);
    for (; i < count; ++i) {
        T r, g, b;
        std::memcpy(&r, red + i * kSize, kSize);
        std::memcpy(&g, green + i * kSize, kSize);
        std::memcpy(&b, blue + i * kSize, kSize);
        const T mean = MeanOfColors(r, g, b);
        std::memcpy(dst + i * kSize, &mean, kSize);
    }
}

template <class E>
void Interleave(const std::byte* first, const std::byte* second, std::byte* dst, Int count) {
    constexpr Int kSize = sizeof(E);
    const hn::ScalableTag<E> d;
    const Int step = static_cast<Int>(hn::Lanes(d));
    Int i = 0;
    for (; i + step <= count; i += step) {
        const auto a = LoadAt(d, first + i * kSize), b = LoadAt(d, second + i * kSize);
        const auto low = hn::InterleaveLower(d, a, b), high = hn::InterleaveUpper(d, a, b);
        std::byte* to = dst + 2 * i * kSize;
        if constexpr (hn::MaxLanes(d) * sizeof(E) == 16) {
            StoreAt(d, low, to);
            StoreAt(d, high, to + step * kSize);
        } else {
            // Interleaving stays within 16 bytes, so the halves of each pair are put together afterwards.
            constexpr Int kBlock = 16;
            const hn::Repartition<uint8_t, decltype(d)> bytes;
            alignas(64) uint8_t lows[HWY_MAX_BYTES], highs[HWY_MAX_BYTES];
            hn::Store(hn::BitCast(bytes, low), bytes, lows);
            hn::Store(hn::BitCast(bytes, high), bytes, highs);
            for (Int lane = 0; lane < step * kSize / kBlock; ++lane) {
                std::memcpy(to + 2 * lane * kBlock, lows + lane * kBlock, kBlock);
                std::memcpy(to + (2 * lane + 1) * kBlock, highs + lane * kBlock, kBlock);
            }
        }
    }
    for (; i < count; ++i) {
        std::memcpy(dst + 2 * i * kSize, first + i * kSize, kSize);
        std::memcpy(dst + (2 * i + 1) * kSize, second + i * kSize, kSize);
    }
}

void SetShuffleKernels(KernelSet& set) {
    set.laneBytes = kLaneBytes;
    set.blockBytes = static_cast<int>(hn::Lanes(Bytes()));
    SetShuffles<1>(set);
    SetShuffles<2>(set);
    SetShuffles<3>(set);
    SetShuffles<4>(set);
    const auto setMean = [&set]<int I>(std::integral_constant<int, I>) { set.mean[I] = &MeanRun<ComponentAtT<I>>; };
    // The formats whose colours may become grey have these types.
    setMean(std::integral_constant<int, static_cast<int>(ComponentType::U8)>());
    setMean(std::integral_constant<int, static_cast<int>(ComponentType::U16)>());
    setMean(std::integral_constant<int, static_cast<int>(ComponentType::U32)>());
    setMean(std::integral_constant<int, static_cast<int>(ComponentType::S32)>());
    setMean(std::integral_constant<int, static_cast<int>(ComponentType::F16)>());
    setMean(std::integral_constant<int, static_cast<int>(ComponentType::F32)>());
    setMean(std::integral_constant<int, static_cast<int>(ComponentType::F64)>());
    set.interleave[0] = &Interleave<uint8_t>;
    set.interleave[1] = &Interleave<uint16_t>;
    set.interleave[2] = &Interleave<uint32_t>;
    set.interleave[3] = &Interleave<uint64_t>;
}

}  // namespace orvik::pixel::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace orvik::pixel {

SetKernelsFunction GetShuffleKernels(int64_t target) { ORVIK_KERNELS_OF_TARGET(SetShuffleKernels) }

}  // namespace orvik::pixel
#endif
