/// @file
/// The loop over vectors of pixels, one instance for each formula.

// Included once for each instruction set.
#if defined(ORVIK_GFX_IMAGE_PIXELBLEND_KERNELS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef ORVIK_GFX_IMAGE_PIXELBLEND_KERNELS_INL_H
#undef ORVIK_GFX_IMAGE_PIXELBLEND_KERNELS_INL_H
#else
#define ORVIK_GFX_IMAGE_PIXELBLEND_KERNELS_INL_H
#endif

#include <array>
#include <cstring>
#include <utility>

#include "pixel/blend/gfx_image_pixelblend_formulas_inl.h"

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128
HWY_BEFORE_NAMESPACE();
namespace orvik::pixel::HWY_NAMESPACE {

/// Whether vectors consist of 128-bit blocks of one pixel each.
template <class D>
constexpr bool kBlockIsPixel = sizeof(hn::TFromD<D>) == sizeof(float);

/// Four vectors of whole pixels to a vector for each channel, and back. Which pixel lands in which lane plays no part
/// as long as all runs agree and the way back undoes it, so nothing crosses a block.
template <class D, class V>
HWY_INLINE void TransposeInBlocks(D d, V& a, V& b, V& c, V& e) {
    const V lowAC = hn::InterleaveLower(d, a, c), highAC = hn::InterleaveUpper(d, a, c);
    const V lowBE = hn::InterleaveLower(d, b, e), highBE = hn::InterleaveUpper(d, b, e);
    a = hn::InterleaveLower(d, lowAC, lowBE);
    b = hn::InterleaveUpper(d, lowAC, lowBE);
    c = hn::InterleaveLower(d, highAC, highBE);
    e = hn::InterleaveUpper(d, highAC, highBE);
}

template <class D>
HWY_INLINE Rgba<Lanes<D>> LoadPixels(D d, const hn::TFromD<D>* pixels) {
    hn::Vec<D> red, green, blue, alpha;
    if constexpr (kBlockIsPixel<D>) {
        const size_t lanes = hn::Lanes(d);
        red = hn::LoadU(d, pixels);
        green = hn::LoadU(d, pixels + lanes);
        blue = hn::LoadU(d, pixels + 2 * lanes);
        alpha = hn::LoadU(d, pixels + 3 * lanes);
        TransposeInBlocks(d, red, green, blue, alpha);
    } else {
        hn::LoadInterleaved4(d, pixels, red, green, blue, alpha);
    }
    return {Lanes<D>(red), Lanes<D>(green), Lanes<D>(blue), Lanes<D>(alpha)};
}

template <class D>
HWY_INLINE void StorePixels(D d, const Rgba<Lanes<D>>& colors, hn::TFromD<D>* pixels) {
    hn::Vec<D> red = colors.red.vector, green = colors.green.vector, blue = colors.blue.vector,
               alpha = colors.alpha.vector;
    if constexpr (kBlockIsPixel<D>) {
        const size_t lanes = hn::Lanes(d);
        TransposeInBlocks(d, red, green, blue, alpha);
        hn::StoreU(red, d, pixels);
        hn::StoreU(green, d, pixels + lanes);
        hn::StoreU(blue, d, pixels + 2 * lanes);
        hn::StoreU(alpha, d, pixels + 3 * lanes);
    } else {
        hn::StoreInterleaved4(red, green, blue, alpha, d, pixels);
    }
}

template <BlendFormula kFormula, class T>
void BlendRun(T* dst, const T* bg, const T* fg, size_t count, T opacity) {
    using D = hn::ScalableTag<T>;
    const D d;
    const Lanes<D> factor(hn::Set(d, opacity));
    const size_t step = hn::Lanes(d);
    for (; count >= step; count -= step, dst += 4 * step, bg += 4 * step, fg += 4 * step)
        StorePixels(d, BlendPixel<kFormula>(LoadPixels(d, bg), LoadPixels(d, fg), factor), dst);
    if (count == 0)
        return;
    // The last pixels as a whole vector beside the run: transparent foreground over nothing fills it up.
    HWY_ALIGN T back[4 * hn::MaxLanes(D())] = {}, front[4 * hn::MaxLanes(D())] = {};
    const size_t bytes = count * 4 * sizeof(T);
    std::memcpy(back, bg, bytes);
    std::memcpy(front, fg, bytes);
    BlendRun<kFormula>(back, back, front, step, opacity);
    std::memcpy(dst, back, bytes);
}

template <class T, size_t... kFormula>
constexpr std::array<BlendKernel<T>, sizeof...(kFormula)> MakeBlendKernels(std::index_sequence<kFormula...>) {
    return {&BlendRun<static_cast<BlendFormula>(kFormula), T>...};
}

template <class T>
BlendKernel<T> FindBlendKernel(BlendFormula formula) {
    static constexpr auto kKernels = MakeBlendKernels<T>(std::make_index_sequence<kBlendFormulaCount>());
    return kKernels[static_cast<size_t>(formula)];
}

}  // namespace orvik::pixel::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#endif
