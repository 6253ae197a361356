#pragma once
/// @file
/// What the files of kernels for single instruction sets give to the one that chooses among them.

#include "pixel/kernels/gfx_image_pixelformat_kernels.h"

namespace orvik::pixel {

/// Loops without instructions beyond the baseline.
const KernelSet& GetPlainKernels();

/// Each enters its kernels for one instruction set.
using SetKernelsFunction = void (*)(KernelSet& set);

/// The functions of one file, by Highway's number of the instruction set; null where the file has none.
/// @{
SetKernelsFunction GetIntegerKernels(int64_t target);
SetKernelsFunction GetFloatKernels(int64_t target);
SetKernelsFunction GetShuffleKernels(int64_t target);
SetKernelsFunction GetMeanKernels(int64_t target);
/// @}

}  // namespace orvik::pixel
