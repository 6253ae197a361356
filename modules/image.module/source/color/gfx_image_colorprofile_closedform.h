#pragma once
/// @file
/// The transfer curves between linear RGB and sRGB, evaluated without the colour library.

#include <cstddef>

namespace orvik {

enum class TransferCurve { LinearToSrgb, SrgbToLinear };

/// One value, by the C library: c < 0.0031308 ? c * 12.92 : c^0.41666666 * 1.055 - 0.055, with the constants as single
/// precision numbers and the power in double precision. NaN stays NaN, negative values are on the straight part.
float LinearToSrgb(float c);
/// c <= 0.04045 ? c * 0.07739938 : ((c + 0.055) * 0.9478673)^2.4, in the same way.
float SrgbToLinear(float c);

/// Converts a run, by the vectors that `pixel::GetKernels` has chosen or one by one. Every result lies within one unit
/// in the last place of the formula's exact value. A value's result does not depend on its place in the run.
/// @param dst  may be the same run as src; neither needs an alignment
void ConvertTransferCurve(TransferCurve curve, float* dst, const float* src, size_t count);

}  // namespace orvik
