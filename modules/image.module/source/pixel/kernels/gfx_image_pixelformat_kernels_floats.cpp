// Conversion of contiguous floats, compiled once for each instruction set.

#include "pixel/kernels/gfx_image_pixelformat_kernels_targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "pixel/kernels/gfx_image_pixelformat_kernels_floats.cpp"
#include <hwy/foreach_target.h>

#include "pixel/kernels/gfx_image_pixelformat_kernels_convert_inl.h"

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128
HWY_BEFORE_NAMESPACE();
namespace orvik::pixel::HWY_NAMESPACE {

void SetFloatKernels(KernelSet& set) { SetRows(set, std::integer_sequence<int, 6, 7, 8>()); }

}  // namespace orvik::pixel::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace orvik::pixel {

SetKernelsFunction GetFloatKernels(int64_t target) { ORVIK_KERNELS_OF_TARGET(SetFloatKernels) }

}  // namespace orvik::pixel
#endif
