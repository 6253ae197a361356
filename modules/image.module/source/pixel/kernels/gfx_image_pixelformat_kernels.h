#pragma once
/// @file
/// The loops of pixel conversion. All addresses may be unaligned; strides are in bytes and may be 0 or negative for
/// sources and negative for destinations. A count of 0 or below does nothing.
///
/// The strided loops serve planes and odd placements. The loops over contiguous values exist at several levels, one for
/// each instruction set; every level gives the bits of the scalar functions in gfx_image_pixelformat_arithmetic.h.

#include "orvik/gfx_image_channels.h"

namespace orvik::pixel {

/// Converts `count` contiguous values. The runs must not overlap; values of equal width may be converted in place.
using ConvertRunFunction = void (*)(const std::byte* src, std::byte* dst, Int count);
/// Converts `count` values that are `srcStride` and `dstStride` bytes apart.
using ConvertStridedFunction = void (*)(const std::byte* src, Int srcStride, std::byte* dst, Int dstStride, Int count);
/// Writes the means of red, green and blue as values of the same type.
using MeanFunction = void (*)(const std::byte* red, const std::byte* green, const std::byte* blue, Int srcStride,
                              std::byte* dst, Int dstStride, Int count);
/// The same over contiguous values.
using MeanRunFunction = void (*)(const std::byte* red, const std::byte* green, const std::byte* blue, std::byte* dst,
                                 Int count);
/// Writes `count` pairs of a first and a second value.
using InterleaveFunction = void (*)(const std::byte* first, const std::byte* second, std::byte* dst, Int count);

/// Types must be of the nine.
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

/// A permutation as byte shuffles, for one of two kinds of machine.
///
/// Where bytes move within lanes of 16 bytes only, one period of pixels fills `blocks` vectors, and each lane of them
/// picks bytes from up to four windows of the source. Where bytes come from anywhere in whole vectors, there is one
/// block, filled by as many whole pixels as fit; its windows are the vectors from the first source byte on, and
/// `picks[0][0]` are positions in them, 0 ... 255. Bytes behind the pixels are picked from the same place, so that they
/// do no harm where a run is rearranged in place.
struct ShuffleTable {
    static constexpr int kMaxBlocks = 4, kMaxWindows = 4, kMaxLanes = 4, kMaxBlockBytes = 64;

    int blocks = 0, windows = 0;
    int pixels = 0;                                               ///< of a period or block
    int srcPixel = 0, dstPixel = 0;                               ///< bytes
    int32_t offsets[kMaxBlocks][kMaxWindows][kMaxLanes] = {};     ///< of windows, from the period's first source byte
    uint8_t picks[kMaxBlocks][kMaxWindows][kMaxBlockBytes] = {};  ///< byte of the window; 0x80 gives 0
    uint8_t fill[kMaxBlocks][kMaxBlockBytes] = {};  ///< joins where no window, or 0x80 in `picks[0][1]`, gives a byte
};
/// Shuffles at least one period of pixels, or any number over whole vectors. In place if the pixels have one size.
using ShuffleFunction = void (*)(const ShuffleTable& table, const std::byte* src, std::byte* dst, Int count);

/// The places of three colours in the pixels that fill three or four vectors: for each byte of a vector of red, green
/// and blue its position, 0 ... 255.
struct MeanTable {
    uint8_t picks[3][ShuffleTable::kMaxBlockBytes] = {};
};
/// Writes the means of the colours of contiguous pixels.
using MeanOfPixelsFunction = void (*)(const MeanTable& table, const std::byte* src, std::byte* dst, Int count);

/// The loops over contiguous values for one instruction set.
struct KernelSet {
    const char* name = "scalar";
    int64_t target = 0;  ///< the instruction set as the vector library counts it; 0 for plain loops
    ConvertRunFunction run[kComponentTypeCount][kComponentTypeCount] = {};
    MeanRunFunction mean[kComponentTypeCount] = {};
    InterleaveFunction interleave[4] = {};                           ///< by the logarithm of the value's bytes
    MeanOfPixelsFunction meanOfPixels[kComponentTypeCount][2] = {};  ///< for 3 and 4 channels; null if there is none
    int vectorBytes = 0;                                             ///< 0 when nothing is shuffled
    int laneBytes = 0;  ///< within which bytes move; 0 when they move in whole vectors
    ShuffleFunction shuffle[ShuffleTable::kMaxBlocks][ShuffleTable::kMaxWindows] = {};  ///< by blocks and windows - 1

    ConvertRunFunction GetRun(ComponentType src, ComponentType dst) const {
        return run[static_cast<int>(src)][static_cast<int>(dst)];
    }
};

/// The best set for this machine, or the one that the environment variable ORVIK_SIMD names. An unknown or unsupported
/// name changes nothing. What it returns stays valid.
const KernelSet& GetKernels();
/// The sets that this machine can run, plain loops first.
Block<const KernelSet* const> GetKernelSets();
/// Makes later calls of `GetKernels` return this set. For tests.
void SetKernels(const KernelSet& kernels);

}  // namespace orvik::pixel
