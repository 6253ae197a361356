// Conversion of contiguous integers, compiled once for each instruction set.

#include "pixel/kernels/gfx_image_pixelformat_kernels_targets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "pixel/kernels/gfx_image_pixelformat_kernels_integers.cpp"
#include <hwy/foreach_target.h>

#include "pixel/kernels/gfx_image_pixelformat_kernels_convert_inl.h"

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128
HWY_BEFORE_NAMESPACE();
namespace orvik::pixel::HWY_NAMESPACE {

void SetIntegerKernels(KernelSet& set) { SetRows(set, std::integer_sequence<int, 0, 1, 2, 3, 4, 5>()); }

}  // namespace orvik::pixel::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace orvik::pixel {

SetKernelsFunction GetIntegerKernels(int64_t target) { ORVIK_KERNELS_OF_TARGET(SetIntegerKernels) }

}  // namespace orvik::pixel
#endif
