#pragma once
/// @file
/// Blocks of pixels as planes: one contiguous run of one component type for each channel.
///
/// Formats with an arithmetic of their own work on planes and leave it to the component table to bring the channels of
/// a partner format there and back, wherever they lie and whatever type they have.

#include "pixel/gfx_image_pixelformat_catalogue.h"

namespace orvik::pixel {

/// Pixels of one block; even, since two pixels may share a unit.
inline constexpr Int kPlanePixels = 256;
inline constexpr int kMaxPlanes = 4;

constexpr int kDigitAlpha = 0xA, kDigitUnused = 0xF;

/// The pixel of a line, whose stride is a whole number of bytes.
inline const std::byte* PixelAt(const PixelLineConst& line, Int index) {
    return static_cast<const std::byte*>(line.data) + index * line.stride.GetBytes();
}
inline std::byte* PixelAt(const PixelLine& line, Int index) {
    return static_cast<std::byte*>(line.data) + index * line.stride.GetBytes();
}

/// One side of a conversion that goes through planes: a format of whole components.
class PlaneSide {
public:
    /// @param digits   the channels that become planes, in this order; at most `kMaxPlanes`
    /// @param offsets  where the format's channels lie, in bits
    /// Errors: illegal argument when offsets are missing.
    static Result<PlaneSide> Create(const FormatRow& row, std::initializer_list<int> digits, ChannelOffsets offsets);

    ComponentType GetType() const { return _type; }

    /// Reads `count` (at most `kPlanePixels`) pixels from pixel `first` on.
    /// @param planes  values of `type`, `kPlanePixels` for each plane. A channel that the format lacks leaves its plane
    ///                with all bits set, which is opaque for the integer types.
    void Read(const PixelLineConst& line, Int first, Int count, ComponentType type, void* planes) const;
    /// Writes the planes of those channels that the format has, and zeros into an unused channel.
    void Write(const PixelLine& line, Int first, Int count, ComponentType type, const void* planes) const;
    /// Writes the alpha of another format, opaque when that is null or has none. Nothing without an alpha channel.
    void WriteAlpha(const PixelLine& line, Int first, Int count, const PlaneSide* src,
                    const PixelLineConst& srcLine) const;

private:
    static constexpr Int kMissing = -1;

    ComponentType _type = ComponentType::None;
    int _planeCount = 0;
    Int _planes[kMaxPlanes] = {};  ///< bytes from the pixel, or `kMissing`
    Int _alpha = kMissing, _unused = kMissing;
};

}  // namespace orvik::pixel
