// Permutations of channels and pairs of channels, compiled once for each instruction set.

#include "pixel/kernels/gfx_image_pixelformat_kernels_targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "pixel/kernels/gfx_image_pixelformat_kernels_shuffle.cpp"
#include <hwy/foreach_target.h>

#include "pixel/kernels/gfx_image_pixelformat_kernels_convert_inl.h"

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128
HWY_BEFORE_NAMESPACE();
namespace orvik::pixel::HWY_NAMESPACE {

using Bytes = hn::ScalableTag<uint8_t>;
using ByteVector = hn::Vec<Bytes>;

#if HWY_TARGET == HWY_AVX3_DL

// --- Bytes from anywhere in whole vectors ----------------------------------------------------------------------------

/// Reads nothing behind the run and writes nothing behind it: the last block masks its loads and its store.
template <int Windows>
void Shuffle(const ShuffleTable& table, const std::byte* src, std::byte* dst, Int count) {
    const __m512i from = _mm512_loadu_si512(table.picks[0][0]), fill = _mm512_loadu_si512(table.fill[0]);
    const __mmask64 picked = _knot_mask64(_mm512_movepi8_mask(_mm512_loadu_si512(table.picks[0][1])));
    const __mmask64 high = _mm512_movepi8_mask(from);
    const __m512i fromOrFill = _mm512_mask_mov_epi8(fill, picked, from);
    const auto pick = [&](const __m512i* window) HWY_ATTR {
        if constexpr (Windows == 1) {
            return _mm512_mask_permutexvar_epi8(fill, picked, from, window[0]);
        } else {
            const __m512i low = _mm512_mask2_permutex2var_epi8(window[0], fromOrFill, picked, window[1]);
            if constexpr (Windows == 2)
                return low;
            else if constexpr (Windows == 3)
                return _mm512_mask_permutexvar_epi8(low, high, from, window[2]);
            else
                return _mm512_mask_mov_epi8(low, high, _mm512_permutex2var_epi8(window[2], from, window[3]));
        }
    };
    const Int srcStep = Int(table.pixels) * table.srcPixel, dstStep = Int(table.pixels) * table.dstPixel;
    Int srcLeft = count * table.srcPixel, dstLeft = count * table.dstPixel;
    __m512i window[Windows];
    while (srcLeft >= Windows * kVectorBytes && dstLeft >= kVectorBytes) {
        for (int w = 0; w < Windows; ++w)
            window[w] = _mm512_loadu_si512(src + w * kVectorBytes);
        _mm512_storeu_si512(dst, pick(window));
        src += srcStep, dst += dstStep;
        srcLeft -= srcStep, dstLeft -= dstStep;
    }
    while (dstLeft > 0) {
        for (int w = 0; w < Windows; ++w)
            window[w] = _mm512_maskz_loadu_epi8(MaskOf(srcLeft - w * kVectorBytes), src + w * kVectorBytes);
        _mm512_mask_storeu_epi8(dst, MaskOf(dstLeft), pick(window));
        src += srcStep, dst += dstStep;
        srcLeft -= srcStep, dstLeft -= dstStep;
    }
}

void SetShuffles(KernelSet& set) {
    set.laneBytes = 0;
    set.shuffle[0][0] = &Shuffle<1>;
    set.shuffle[0][1] = &Shuffle<2>;
    set.shuffle[0][2] = &Shuffle<3>;
    set.shuffle[0][3] = &Shuffle<4>;
}

#else

// --- Bytes from windows of a lane ------------------------------------------------------------------------------------

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
                to[b] = hn::Or(to[b], hn::TableLookupBytesOr0(LoadLanes(d, period, offsets[b][w]), picks[b][w]));
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
    for (; dst < lastDst; src += srcStep, dst += dstStep) {
        shuffle(src, result);
        store(result, dst);
    }
    store(last, lastDst);
}

template <int Blocks>
void SetShufflesOf(KernelSet& set) {
    set.shuffle[Blocks - 1][0] = &Shuffle<Blocks, 1>;
    set.shuffle[Blocks - 1][1] = &Shuffle<Blocks, 2>;
    set.shuffle[Blocks - 1][2] = &Shuffle<Blocks, 3>;
    set.shuffle[Blocks - 1][3] = &Shuffle<Blocks, 4>;
}

void SetShuffles(KernelSet& set) {
    set.laneBytes = kLaneBytes;
    SetShufflesOf<1>(set);
    SetShufflesOf<2>(set);
    SetShufflesOf<3>(set);
    SetShufflesOf<4>(set);
}

#endif

// --- Pairs -----------------------------------------------------------------------------------------------------------

template <class E>
void Interleave(const std::byte* first, const std::byte* second, std::byte* dst, Int count) {
    constexpr Int kSize = sizeof(E);
    const hn::ScalableTag<E> d;
    const Int step = static_cast<Int>(hn::Lanes(d));
    Int i = 0;
    for (; i + step <= count; i += step) {
        const auto a = LoadAt(d, first + i * kSize), b = LoadAt(d, second + i * kSize);
        // Interleaving stays within 16 bytes, so in wider vectors such blocks change places afterwards.
        const auto low = hn::InterleaveLower(d, a, b), high = hn::InterleaveUpper(d, a, b);
        std::byte* to = dst + 2 * i * kSize;
#if HWY_TARGET <= HWY_AVX3
        const __m512i front = _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11);
        const __m512i back = _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15);
        _mm512_storeu_si512(to, _mm512_permutex2var_epi64(low.raw, front, high.raw));
        _mm512_storeu_si512(to + step * kSize, _mm512_permutex2var_epi64(low.raw, back, high.raw));
#elif HWY_TARGET <= HWY_AVX2
        StoreAt(d, hn::ConcatLowerLower(d, high, low), to);
        StoreAt(d, hn::ConcatUpperUpper(d, high, low), to + step * kSize);
#else
        StoreAt(d, low, to);
        StoreAt(d, high, to + step * kSize);
#endif
    }
    for (; i < count; ++i) {
        std::memcpy(dst + 2 * i * kSize, first + i * kSize, kSize);
        std::memcpy(dst + (2 * i + 1) * kSize, second + i * kSize, kSize);
    }
}

void SetShuffleKernels(KernelSet& set) {
    set.vectorBytes = static_cast<int>(hn::Lanes(Bytes()));
    SetShuffles(set);
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
