#pragma once
/// @file
/// Plain value types of the pixel model: bit counts, spans, rectangles.

#include "orvik/datatype.h"

namespace orvik {

/// A signed count of bits. All strides and offsets of the pixel model are kept in bits, never in bytes.
class BITS {
public:
    constexpr BITS() = default;
    constexpr explicit BITS(Int bits) : _bits(bits) {}
    constexpr Int GetBits() const { return _bits; }
    /// Rounded up to whole bytes.
    constexpr Int GetBytes() const { return (_bits + 7) >> 3; }
    friend constexpr bool operator==(BITS, BITS) = default;
    friend constexpr auto operator<=>(BITS, BITS) = default;  // NOLINT(modernize-use-nullptr)
    friend constexpr BITS operator+(BITS a, BITS b) { return BITS(a._bits + b._bits); }
    friend constexpr BITS operator-(BITS a, BITS b) { return BITS(a._bits - b._bits); }
    friend constexpr BITS operator*(BITS a, Int n) { return BITS(a._bits * n); }
    String ToString() const { return FormatString("@", _bits); }

private:
    Int _bits = 0;
};
/// Start bit of each channel and a last entry with the bits per pixel.
using ChannelOffsets = Block<const BITS>;

template <class T>
struct DrawPoint2d {
    T x{}, y{};
    bool operator==(const DrawPoint2d&) const = default;
};
template <class T>
struct DrawPoint3d {
    T x{}, y{}, z{};
    bool operator==(const DrawPoint3d&) const = default;
};
template <class T>
struct DrawDimension {
    T width{}, height{};
    bool operator==(const DrawDimension&) const = default;
};
template <class T>
struct DrawDimension3d {
    T width{}, height{}, depth{};
    bool operator==(const DrawDimension3d&) const = default;
};
template <class T>
struct DrawRect {
    DrawPoint2d<T> position;
    DrawDimension<T> size;
    bool operator==(const DrawRect&) const = default;
};
template <class T>
struct DrawVolume {
    DrawPoint3d<T> position;
    DrawDimension3d<T> size;
    bool operator==(const DrawVolume&) const = default;
};
using DrawPoint3dInt = DrawPoint3d<Int>;
using DrawPoint3dFloat = DrawPoint3d<Float>;
using DrawDimensionInt = DrawDimension<Int>;
using DrawDimensionFloat = DrawDimension<Float>;
using DrawDimension3dInt = DrawDimension3d<Int>;
using DrawDimension3dFloat = DrawDimension3d<Float>;
using DrawRectInt = DrawRect<Int>;
using DrawRectFloat = DrawRect<Float>;
using DrawVolumeInt = DrawVolume<Int>;
using DrawVolumeFloat = DrawVolume<Float>;

/// A rectangle of an image that changed, in pixels.
struct UpdateRegion {
    Int x = 0, y = 0, width = 0, height = 0;
    bool operator==(const UpdateRegion&) const = default;
};

/// `count` pixels of line y, from x on.
struct PixelSpan {
    Int x = 0, y = 0, count = 0;
};

/// A run of pixels to read: first byte, the distance between pixels, and the bit inside the first byte where the first
/// pixel starts (0 is the highest bit; nonzero only for formats below 8 bits). The distance may be negative; 0 repeats
/// one pixel, which has to be asked for.
struct PixelLineConst {
    constexpr PixelLineConst(const void* first, BITS distance, int firstBit = 0)
        : data(first), stride(distance), phase(firstBit) {}

    const void* data;
    BITS stride;
    int phase;
};
/// A run of pixels to write; as `PixelLineConst`.
struct PixelLine {
    constexpr PixelLine(void* first, BITS distance, int firstBit = 0)
        : data(first), stride(distance), phase(firstBit) {}
    operator PixelLineConst() const { return {data, stride, phase}; }  // NOLINT(google-explicit-constructor)

    void* data;
    BITS stride;
    int phase;
};

/// Ids of the data types of this header.
namespace datatypes {
inline constexpr Id kBits{"net.orvik.image.bits"};
inline constexpr Id kUpdateRegion{"net.orvik.image.updateregion"};
inline constexpr Id kDrawDimensionInt{"net.orvik.image.drawdimensionint"};
inline constexpr Id kDrawDimensionFloat{"net.orvik.image.drawdimensionfloat"};
inline constexpr Id kDrawRectInt{"net.orvik.image.drawrectint"};
inline constexpr Id kDrawRectFloat{"net.orvik.image.drawrectfloat"};
inline constexpr Id kDrawPoint3dInt{"net.orvik.image.drawpoint3dint"};
inline constexpr Id kDrawPoint3dFloat{"net.orvik.image.drawpoint3dfloat"};
inline constexpr Id kDrawDimension3dInt{"net.orvik.image.drawdimension3dint"};
inline constexpr Id kDrawDimension3dFloat{"net.orvik.image.drawdimension3dfloat"};
inline constexpr Id kDrawVolumeInt{"net.orvik.image.drawvolumeint"};
inline constexpr Id kDrawVolumeFloat{"net.orvik.image.drawvolumefloat"};
}  // namespace datatypes

template <>
inline constexpr const char* kDataTypeName<BITS> = "orvik::BITS";
template <>
inline constexpr const char* kDataTypeName<UpdateRegion> = "orvik::UpdateRegion";
template <>
inline constexpr const char* kDataTypeName<DrawDimensionInt> = "orvik::DrawDimensionInt";
template <>
inline constexpr const char* kDataTypeName<DrawDimensionFloat> = "orvik::DrawDimensionFloat";
template <>
inline constexpr const char* kDataTypeName<DrawRectInt> = "orvik::DrawRectInt";
template <>
inline constexpr const char* kDataTypeName<DrawRectFloat> = "orvik::DrawRectFloat";
template <>
inline constexpr const char* kDataTypeName<DrawPoint3dInt> = "orvik::DrawPoint3dInt";
template <>
inline constexpr const char* kDataTypeName<DrawPoint3dFloat> = "orvik::DrawPoint3dFloat";
template <>
inline constexpr const char* kDataTypeName<DrawDimension3dInt> = "orvik::DrawDimension3dInt";
template <>
inline constexpr const char* kDataTypeName<DrawDimension3dFloat> = "orvik::DrawDimension3dFloat";
template <>
inline constexpr const char* kDataTypeName<DrawVolumeInt> = "orvik::DrawVolumeInt";
template <>
inline constexpr const char* kDataTypeName<DrawVolumeFloat> = "orvik::DrawVolumeFloat";

}  // namespace orvik
