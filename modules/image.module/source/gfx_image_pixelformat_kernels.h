#pragma once
/// @file
/// The loops of pixel conversion. All addresses may be unaligned; strides are in bytes and may be 0 or negative for
/// sources and negative for destinations. A count of 0 or below does nothing.
///
/// The kernels are looked up by component types, so that faster ones for a machine can take their places here; every
/// kernel gives the bits of the scalar functions in gfx_image_pixelformat_arithmetic.h.

#include "orvik/gfx_image_channels.h"

namespace orvik::pixel {

/// Converts `count` contiguous values. The runs must not overlap unless the types are equal.
using ConvertRunFunction = void (*)(const std::byte* src, std::byte* dst, Int count);
/// Converts `count` values that lie `srcStride` and `dstStride` bytes apart.
using ConvertStridedFunction = void (*)(const std::byte* src, Int srcStride, std::byte* dst, Int dstStride, Int count);
/// Writes the means of red, green and blue as values of the same type.
using MeanFunction = void (*)(const std::byte* red, const std::byte* green, const std::byte* blue, Int srcStride,
                              std::byte* dst, Int dstStride, Int count);

/// Types must be of the nine.
ConvertRunFunction GetConvertRun(ComponentType src, ComponentType dst);
ConvertStridedFunction GetConvertStrided(ComponentType src, ComponentType dst);
MeanFunction GetMean(ComponentType type);

/// Writes one value of `elementBytes` (1, 2, 4 or 8) bytes `count` times.
void FillStrided(const std::byte* value, int elementBytes, std::byte* dst, Int dstStride, Int count);

/// Where a channel of a permuted pixel comes from.
struct PermuteSource {
    int8_t channel = -1;     ///< of the source pixel; -1 takes `fill`
    std::byte fill[8] = {};  ///< a value of the element's width
};
/// Rearranges contiguous pixels of `srcCount` channels into contiguous pixels of `dstCount` channels, all of
/// `elementBytes` bytes. The runs must not overlap.
void PermutePixels(const std::byte* src, int srcCount, std::byte* dst, int dstCount, const PermuteSource* sources,
                   int elementBytes, Int count);

}  // namespace orvik::pixel
