#pragma once
/// @file
/// A rearrangement of channels, prepared for the machine.

#include "pixel/kernels/gfx_image_pixelformat_kernels.h"

namespace orvik::pixel {

/// Rearranges contiguous pixels of one element type. Prepared once, immutable then.
class PixelShuffle {
public:
    static constexpr int kMaxChannels = 8;

    /// @param srcCount, dstCount  1 ... kMaxChannels
    /// @param sources             one for each destination channel
    /// @param elementBytes        1, 2, 4 or 8
    void Init(const KernelSet& kernels, int srcCount, int dstCount, const PermuteSource* sources, int elementBytes);

    /// Any count. The runs must not overlap; pixels of equal size may be rearranged in place.
    void Run(const std::byte* src, std::byte* dst, Int count) const {
        if (count >= _fewest && _shuffle) [[likely]]
            _shuffle(_table, src, dst, count);
        else
            RunShort(src, dst, count);
    }

private:
    int FindSource(int dstByte) const;
    bool FillPeriod(int laneBytes, int vectorBytes);
    void FillBlock(int vectorBytes);
    void RunShort(const std::byte* src, std::byte* dst, Int count) const;

    ShuffleFunction _shuffle = nullptr;  ///< null when bytes are not shuffled here
    Int _fewest = 1;                     ///< pixels that it takes
    ShuffleTable _table;
    PermuteSource _sources[kMaxChannels];
    int _srcCount = 0, _dstCount = 0, _elementBytes = 1;
};

}  // namespace orvik::pixel
