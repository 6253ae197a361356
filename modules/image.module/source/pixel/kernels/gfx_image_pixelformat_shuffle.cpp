#include "pixel/kernels/gfx_image_pixelformat_shuffle.h"

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
    if (kernels.laneBytes > 0) {
        if (!FillPeriod(kernels.laneBytes, kernels.vectorBytes))
            return;
        _fewest = _table.pixels;
    } else if (kernels.vectorBytes > 0) {
        FillBlock(kernels.vectorBytes);
    } else {
        return;
    }
    _shuffle = kernels.shuffle[_table.blocks - 1][_table.windows - 1];
}

/// The source byte of a byte of the destination, or -1 for a constant.
int PixelShuffle::FindSource(int dstByte) const {
    const PermuteSource& source = _sources[dstByte % _table.dstPixel / _elementBytes];
    if (source.channel < 0)
        return -1;
    return dstByte / _table.dstPixel * _table.srcPixel + source.channel * _elementBytes + dstByte % _elementBytes;
}

void PixelShuffle::FillBlock(int vectorBytes) {
    _table.blocks = 1;
    _table.pixels = std::min(vectorBytes / _table.dstPixel, ShuffleTable::kMaxWindows * vectorBytes / _table.srcPixel);
    _table.windows = (_table.pixels * _table.srcPixel + vectorBytes - 1) / vectorBytes;
    for (int i = 0; i < vectorBytes; ++i) {
        const bool isBehind = i >= _table.pixels * _table.dstPixel;
        const int source = isBehind ? i : FindSource(i);
        _table.picks[0][0][i] = static_cast<uint8_t>(std::max(source, 0));
        if (source < 0) {
            _table.picks[0][1][i] = 0x80;
            _table.fill[0][i] =
                static_cast<uint8_t>(_sources[i % _table.dstPixel / _elementBytes].fill[i % _elementBytes]);
        }
    }
}

bool PixelShuffle::FillPeriod(int laneBytes, int vectorBytes) {
    // Windows never leave their period, so that a run is read from its first byte to its last and nowhere else. The
    // period therefore has at least the bytes of a window.
    int blocks = 1;
    while (blocks * vectorBytes % _table.dstPixel != 0 ||
           blocks * vectorBytes / _table.dstPixel * _table.srcPixel < laneBytes) {
        if (++blocks > ShuffleTable::kMaxBlocks)
            return false;
    }
    _table.blocks = blocks;
    _table.pixels = blocks * vectorBytes / _table.dstPixel;
    const int lastWindow = _table.pixels * _table.srcPixel - laneBytes;
    std::memset(_table.picks, 0x80, sizeof(_table.picks));
    for (int block = 0; block < blocks; ++block) {
        for (int lane = 0; lane < vectorBytes / laneBytes; ++lane) {
            int wanted[ShuffleTable::kMaxBlockBytes];  // the source byte of each byte of the lane
            for (int i = 0; i < laneBytes; ++i) {
                const int at = block * vectorBytes + lane * laneBytes + i;
                wanted[i] = FindSource(at);
                if (wanted[i] < 0)
                    _table.fill[block][lane * laneBytes + i] =
                        static_cast<uint8_t>(_sources[at % _table.dstPixel / _elementBytes].fill[at % _elementBytes]);
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
