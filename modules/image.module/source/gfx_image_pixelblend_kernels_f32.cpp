// Blending of floats, for each instruction set.

// No machine in use stops at SSSE3, and the vectors that the formulas stand on need a known size.
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128 | HWY_RVV)

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "gfx_image_pixelblend_kernels_f32.cpp"
#include <hwy/foreach_target.h>

#include "gfx_image_pixelblend_kernels_inl.h"

HWY_BEFORE_NAMESPACE();
namespace orvik::pixel::HWY_NAMESPACE {
BlendKernel<float> FindBlendKernelF32(BlendFormula formula) { return FindBlendKernel<float>(formula); }
}  // namespace orvik::pixel::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace orvik::pixel {

HWY_EXPORT(FindBlendKernelF32);

template <>
BlendKernel<float> GetBlendKernel<float>(BlendFormula formula) {
    return HWY_DYNAMIC_DISPATCH(FindBlendKernelF32)(formula);
}

}  // namespace orvik::pixel
#endif
