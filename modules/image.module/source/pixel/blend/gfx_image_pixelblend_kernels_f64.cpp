// Blending of doubles, for each instruction set.

#include "pixel/blend/gfx_image_pixelblend_kernels_targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "pixel/blend/gfx_image_pixelblend_kernels_f64.cpp"
#include <hwy/foreach_target.h>

#include "pixel/blend/gfx_image_pixelblend_kernels_inl.h"

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128
HWY_BEFORE_NAMESPACE();
namespace orvik::pixel::HWY_NAMESPACE {
BlendKernel<double> FindBlendKernelF64(BlendFormula formula) { return FindBlendKernel<double>(formula); }
}  // namespace orvik::pixel::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace orvik::pixel {
namespace {
BlendKernel<double> (*GetFind(int64_t target))(BlendFormula formula) { ORVIK_KERNELS_OF_TARGET(FindBlendKernelF64) }
}  // namespace

template <>
BlendKernel<double> GetBlendKernel<double>(BlendFormula formula) {
    const auto find = GetFind(GetBlendTarget());
    return find ? find(formula) : nullptr;
}

}  // namespace orvik::pixel
#endif
