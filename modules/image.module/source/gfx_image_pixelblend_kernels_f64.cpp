// Blending of doubles, for each instruction set.

// No machine in use stops at SSSE3, and the vectors that the formulas stand on need a known size.
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128 | HWY_RVV)

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "gfx_image_pixelblend_kernels_f64.cpp"
#include <hwy/foreach_target.h>

#include "gfx_image_pixelblend_kernels_inl.h"

HWY_BEFORE_NAMESPACE();
namespace orvik::pixel::HWY_NAMESPACE {
BlendKernel<double> FindBlendKernelF64(BlendFormula formula) { return FindBlendKernel<double>(formula); }
}  // namespace orvik::pixel::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace orvik::pixel {

HWY_EXPORT(FindBlendKernelF64);

template <>
BlendKernel<double> GetBlendKernel<double>(BlendFormula formula) {
    return HWY_DYNAMIC_DISPATCH(FindBlendKernelF64)(formula);
}

}  // namespace orvik::pixel
#endif
