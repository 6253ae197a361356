#pragma once
/// @file
/// Which instruction sets blending is compiled for.

// No machine in use stops at SSSE3, the strongest set has nothing that these loops need, and the vectors that the
// formulas stand on need a known size. Plain loops stand in a file of their own.
#define HWY_DISABLED_TARGETS (HWY_AVX3_DL | HWY_SSSE3 | HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128 | HWY_RVV)

#include "pixel/kernels/gfx_image_pixelformat_kernels.h"
#include "pixel/kernels/gfx_image_pixelformat_kernels_targets.h"

namespace orvik::pixel {

/// The set that takes the place of the chosen one here.
inline int64_t GetBlendTarget() {
    const int64_t chosen = GetKernels().target;
    return chosen == HWY_AVX3_DL ? HWY_AVX3 : chosen;
}

}  // namespace orvik::pixel
