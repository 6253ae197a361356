// Blending of floats, for each instruction set.

#include "pixel/blend/gfx_image_pixelblend_kernels_targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "pixel/blend/gfx_image_pixelblend_kernels_f32.cpp"
#include <hwy/foreach_target.h>

#include "pixel/blend/gfx_image_pixelblend_kernels_inl.h"

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128
HWY_BEFORE_NAMESPACE();
namespace orvik::pixel::HWY_NAMESPACE {
BlendKernel<float> FindBlendKernelF32(BlendFormula formula) { return FindBlendKernel<float>(formula); }
}  // namespace orvik::pixel::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace orvik::pixel {
namespace {
BlendKernel<float> (*GetFind(int64_t target))(BlendFormula formula) { ORVIK_KERNELS_OF_TARGET(FindBlendKernelF32) }
}  // namespace

template <>
BlendKernel<float> GetBlendKernel<float>(BlendFormula formula) {
    const auto find = GetFind(GetBlendTarget());
    return find ? find(formula) : nullptr;
}

}  // namespace orvik::pixel
#endif
