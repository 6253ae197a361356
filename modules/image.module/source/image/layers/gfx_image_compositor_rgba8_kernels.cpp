// Composing RGBA bytes, for each instruction set.

#include "image/layers/gfx_image_compositor_rgba8_kernels.h"

#include "pixel/blend/gfx_image_pixelblend_kernels_targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "image/layers/gfx_image_compositor_rgba8_kernels.cpp"
#include <hwy/foreach_target.h>

#include "pixel/blend/gfx_image_pixelblend_formulas_inl.h"
#include "pixel/kernels/gfx_image_pixelformat_arithmetic.h"

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128
HWY_BEFORE_NAMESPACE();
namespace orvik::pixel::HWY_NAMESPACE {

using F32 = hn::ScalableTag<float>;
using I32 = hn::Rebind<int32_t, F32>;
using U32 = hn::Rebind<uint32_t, F32>;
using Pixels = Rgba<Lanes<F32>>;

/// One byte of each pixel as a float, by the table of component conversions.
template <int kShift>
HWY_INLINE Lanes<F32> ByteToFloat(hn::Vec<U32> pixels) {
    auto byte = pixels;
    if constexpr (kShift > 0)
        byte = hn::ShiftRight<kShift>(byte);
    if constexpr (kShift < 24)
        byte = hn::And(byte, hn::Set(U32(), 0xFF));
    return Lanes<F32>(hn::ConvertTo(F32(), hn::BitCast(I32(), byte))) *
           Lanes<F32>(double(IntegerToFloat<float>(Pix8u(1))));
}

HWY_INLINE Pixels LoadBytes(const uint8_t* from) {
    const auto pixels = hn::BitCast(U32(), hn::LoadU(hn::Repartition<uint8_t, U32>(), from));
    return {ByteToFloat<0>(pixels), ByteToFloat<8>(pixels), ByteToFloat<16>(pixels), ByteToFloat<24>(pixels)};
}

/// 255 * value + 0.5, cut to 0 ... 255 and truncated; what is not a number gives 0.
HWY_INLINE hn::Vec<U32> FloatToByte(Lanes<F32> value) {
    const F32 d;
    const auto limit = hn::Set(d, 255.0f), scaled = hn::Add(hn::Mul(value.vector, limit), hn::Set(d, 0.5f));
    const auto positive = hn::IfThenElseZero(hn::Gt(scaled, hn::Zero(d)), scaled);
    return hn::BitCast(U32(), hn::ConvertTo(I32(), hn::Min(positive, limit)));
}

HWY_INLINE void StoreBytes(const Pixels& colors, uint8_t* to) {
    const auto low = hn::Or(FloatToByte(colors.red), hn::ShiftLeft<8>(FloatToByte(colors.green)));
    const auto high = hn::Or(hn::ShiftLeft<16>(FloatToByte(colors.blue)), hn::ShiftLeft<24>(FloatToByte(colors.alpha)));
    const hn::Repartition<uint8_t, U32> bytes;
    hn::StoreU(hn::BitCast(bytes, hn::Or(low, high)), bytes, to);
}

/// One vector of pixels that begins `offset` bytes into each run.
HWY_INLINE Pixels ComposeVector(const Rgba8Front* fronts, size_t frontCount, size_t offset, bool straight) {
    const Lanes<F32> zero(0.0);
    Pixels seen{zero, zero, zero, zero};
    size_t next = 0;
    if (straight)
        seen = LoadBytes(fronts[next++].pixels + offset);
    for (; next < frontCount; ++next) {
        const Lanes<F32> opacity(hn::Set(F32(), fronts[next].opacity));
        seen = BlendPixel<BlendFormula::Over>(seen, LoadBytes(fronts[next].pixels + offset), opacity);
    }
    return seen;
}

size_t ComposeVectors(uint8_t* dst, const Rgba8Front* fronts, size_t frontCount, size_t count, bool straight) {
    const size_t step = hn::Lanes(F32());
    size_t i = 0;
    for (; i + step <= count; i += step)
        StoreBytes(ComposeVector(fronts, frontCount, 4 * i, straight), dst + 4 * i);
    return i;
}

}  // namespace orvik::pixel::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace orvik::pixel {
namespace {
Rgba8Kernel FindRgba8Kernel(int64_t target) { ORVIK_KERNELS_OF_TARGET(ComposeVectors) }
}  // namespace

Rgba8Kernel GetRgba8Kernel() { return FindRgba8Kernel(GetBlendTarget()); }

}  // namespace orvik::pixel
#endif
