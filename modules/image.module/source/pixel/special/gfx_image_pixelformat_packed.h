#pragma once
/// @file
/// Channels of a 16-bit word: their positions and their conversion from and to bytes.

#include "pixel/gfx_image_pixelformat_catalogue.h"

namespace orvik::pixel {

/// One channel of a word. A word without the channel has a width of 0 and reads 255.
struct PackedField {
    uint8_t shift = 0;  ///< of the lowest bit
    uint8_t width = 0;
    uint8_t scale = 0;   ///< from the value to a byte; low bits are left 0, except with four channels of four bits
    uint8_t bias = 255;  ///< what is there without a channel

    constexpr uint16_t GetMask() const { return static_cast<uint16_t>(((1u << width) - 1) << shift); }
    constexpr uint8_t Expand(uint16_t word) const {
        return static_cast<uint8_t>(((word >> shift) & ((1u << width) - 1)) * scale + bias);
    }
    /// The highest bits of a byte, in their place.
    constexpr uint16_t Compress(uint8_t value) const {
        return static_cast<uint16_t>(static_cast<uint32_t>(value >> (8 - width)) << shift);
    }
};

/// Red, green, blue, alpha.
struct PackedLayout {
    PackedField fields[4];
};

constexpr PackedLayout MakePackedLayout(const FormatRow& row, const FamilyRow& family) {
    constexpr int kDigits[4] = {0, 1, 2, 0xA};
    PackedLayout layout;
    int shift = 0;
    for (int channel = family.channelCount - 1; channel >= 0; --channel) {  // the last channel has the lowest bits
        const int width = static_cast<int>(row.packing >> (4 * (family.channelCount - 1 - channel))) & 15;
        for (int i = 0; i < 4; ++i) {
            if (GetDigit(family.order, channel) != kDigits[i])
                continue;
            const bool replicates = width == 1 || row.packing == 0x4444;
            const int scale = replicates ? 255 / ((1 << width) - 1) : 1 << (8 - width);
            layout.fields[i] = {static_cast<uint8_t>(shift), static_cast<uint8_t>(width), static_cast<uint8_t>(scale),
                                0};
        }
        shift += width;
    }
    return layout;
}

}  // namespace orvik::pixel
