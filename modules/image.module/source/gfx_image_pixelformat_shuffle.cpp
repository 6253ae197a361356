#include "gfx_image_pixelformat_shuffle.h"

#include <algorithm>
#include <cstring>

namespace orvik::pixel {
namespace {

constexpr Int kFewPixels = 6;  ///< up to here single elements are copied faster than a period

}  // namespace

void PixelShuffle::Init(const KernelSet& kernels, int srcCount, int dstCount, const PermuteSource* sources,
                        int elementBytes) {
    _srcCount = srcCount;
    _dstCount = dstCount;
    _elementBytes = elementBytes;
    std::copy_n(sources, dstCount, _sources);
    _table.srcPixel = srcCount * elementBytes;
    _table.dstPixel = dstCount * elementBytes;
    if (kernels.laneBytes > 0 && FillTable(kernels.laneBytes, kernels.blockBytes))
        _shuffle = kernels.shuffle[_table.blocks - 1][_table.windows - 1];
}

bool PixelShuffle::FillTable(int laneBytes, int blockBytes) {
    // Windows never leave their period, so that a run is read from its first byte to its last and nowhere else. The
    // period therefore has at least the bytes of a window.
    int blocks = 1;
    while (blocks * blockBytes % _table.dstPixel != 0 ||
           blocks * blockBytes / _table.dstPixel * _table.srcPixel < laneBytes) {
        if (++blocks > ShuffleTable::kMaxBlocks)
            return false;
    }
    _table.blocks = blocks;
    _table.pixels = blocks * blockBytes / _table.dstPixel;
    const int lastWindow = _table.pixels * _table.srcPixel - laneBytes;
    std::memset(_table.picks, 0x80, sizeof(_table.picks));
    for (int block = 0; block < blocks; ++block) {
        for (int lane = 0; lane < blockBytes / laneBytes; ++lane) {
            int wanted[ShuffleTable::kMaxBlockBytes];  // the source byte of each byte of the lane
            for (int i = 0; i < laneBytes; ++i) {
                const int at = block * blockBytes + lane * laneBytes + i;
                const int pixel = at / _table.dstPixel, byte = at % _table.dstPixel;
                const PermuteSource& source = _sources[byte / _elementBytes];
                const int inElement = byte % _elementBytes;
                wanted[i] = -1;
                if (source.channel >= 0)
                    wanted[i] = pixel * _table.srcPixel + source.channel * _elementBytes + inElement;
                else
                    _table.fill[block][lane * laneBytes + i] = static_cast<uint8_t>(source.fill[inElement]);
            }
            for (int window = 0;; ++window) {
                int first = -1;
                for (int i = 0; i < laneBytes; ++i) {
                    if (wanted[i] >= 0 && (first < 0 || wanted[i] < first))
                        first = wanted[i];
                }
                if (first < 0)
                    break;
                if (window == ShuffleTable::kMaxWindows)
                    return false;
                const int start = std::min(first, lastWindow);
                _table.windows = std::max(_table.windows, window + 1);
                _table.offsets[block][window][lane] = start;
                for (int i = 0; i < laneBytes; ++i) {
                    if (wanted[i] >= 0 && wanted[i] < start + laneBytes) {
                        _table.picks[block][window][lane * laneBytes + i] = static_cast<uint8_t>(wanted[i] - start);
                        wanted[i] = -1;
                    }
                }
            }
        }
    }
    return _table.windows > 0;
}

void PixelShuffle::RunShort(const std::byte* src, std::byte* dst, Int count) const {
    if (!_shuffle || count <= kFewPixels) {
        // Blocks make rearranging in place safe.
        constexpr Int kBlock = 32;
        std::byte pixels[kBlock * kMaxChannels * 8];
        for (Int done = 0; done < count; done += kBlock) {
            const Int block = std::min(kBlock, count - done);
            std::memcpy(pixels, src + done * _table.srcPixel, static_cast<size_t>(block * _table.srcPixel));
            PermutePixels(pixels, _srcCount, dst + done * _table.dstPixel, _dstCount, _sources, _elementBytes, block);
        }
        return;
    }
    // One period of which only the first pixels count.
    alignas(64) std::byte from[ShuffleTable::kMaxBlocks * ShuffleTable::kMaxBlockBytes * kMaxChannels];
    alignas(64) std::byte to[ShuffleTable::kMaxBlocks * ShuffleTable::kMaxBlockBytes];
    std::memcpy(from, src, static_cast<size_t>(count * _table.srcPixel));
    _shuffle(_table, from, to, _table.pixels);
    std::memcpy(dst, to, static_cast<size_t>(count * _table.dstPixel));
}

}  // namespace orvik::pixel
