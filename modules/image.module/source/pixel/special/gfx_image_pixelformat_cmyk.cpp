// Formats of inks: subtractive arithmetic to and from RGB, and stored values that are inverted.

#include "pixel/special/gfx_image_pixelformat_cmyk.h"

#include <algorithm>

#include "pixel/gfx_image_pixelformat_fixed.h"
#include "pixel/special/gfx_image_pixelformat_planes.h"

namespace orvik {
namespace {

using pixel::kPlanePixels;
using pixel::PlaneSide;

constexpr int kInkCount = 4;

using FloatPlanes = float[kInkCount][kPlanePixels];

void Invert(FloatPlanes& planes, Int count) {
    for (auto& plane : planes) {
        for (Int i = 0; i < count; ++i)
            plane[i] = 1.0f - plane[i];
    }
}

struct InksToColorsConversion {
    PlaneSide src, dst;
    bool inverted;

    Result<void> operator()(const PixelLine& to, Int count, const PixelLineConst& from, CONVERTPIXELFLAGS) const {
        FloatPlanes inks, colors;  // the fourth colour stays unused
        for (Int done = 0; done < count; done += kPlanePixels) {
            const Int block = std::min(kPlanePixels, count - done);
            src.Read(from, done, block, ComponentType::F32, inks);
            if (inverted)
                Invert(inks, block);
            for (Int i = 0; i < block; ++i) {
                const pixel::Colors color = pixel::InksToColors({inks[0][i], inks[1][i], inks[2][i], inks[3][i]});
                colors[0][i] = color.red;
                colors[1][i] = color.green;
                colors[2][i] = color.blue;
            }
            dst.Write(to, done, block, ComponentType::F32, colors);
            dst.WriteAlpha(to, done, block, &src, from);
        }
        return {};
    }
};

struct ColorsToInksConversion {
    PlaneSide src, dst;
    bool inverted;

    Result<void> operator()(const PixelLine& to, Int count, const PixelLineConst& from, CONVERTPIXELFLAGS) const {
        FloatPlanes inks, colors;
        for (Int done = 0; done < count; done += kPlanePixels) {
            const Int block = std::min(kPlanePixels, count - done);
            src.Read(from, done, block, ComponentType::F32, colors);
            for (Int i = 0; i < block; ++i) {
                const pixel::Inks ink = pixel::ColorsToInks({colors[0][i], colors[1][i], colors[2][i]});
                inks[0][i] = ink.cyan;
                inks[1][i] = ink.magenta;
                inks[2][i] = ink.yellow;
                inks[3][i] = ink.black;
            }
            if (inverted)
                Invert(inks, block);
            dst.Write(to, done, block, ComponentType::F32, inks);
            dst.WriteAlpha(to, done, block, &src, from);
        }
        return {};
    }
};

/// Between inks and inverted inks, whichever way.
struct InversionConversion {
    PlaneSide src, dst;

    Result<void> operator()(const PixelLine& to, Int count, const PixelLineConst& from, CONVERTPIXELFLAGS) const {
        const bool isFloat = src.GetType() == ComponentType::F32 || dst.GetType() == ComponentType::F32;
        for (Int done = 0; done < count; done += kPlanePixels) {
            const Int block = std::min(kPlanePixels, count - done);
            if (isFloat)
                InvertFloats(to, done, block, from);
            else
                InvertIntegers(to, done, block, from);
            dst.WriteAlpha(to, done, block, &src, from);
        }
        return {};
    }
    void InvertFloats(const PixelLine& to, Int first, Int count, const PixelLineConst& from) const {
        FloatPlanes inks;
        src.Read(from, first, count, ComponentType::F32, inks);
        Invert(inks, count);
        dst.Write(to, first, count, ComponentType::F32, inks);
    }
    /// All ones less an unsigned number are its other bits.
    void InvertIntegers(const PixelLine& to, Int first, Int count, const PixelLineConst& from) const {
        uint16_t inks[kInkCount][kPlanePixels];
        src.Read(from, first, count, ComponentType::U16, inks);
        for (auto& plane : inks) {
            for (Int i = 0; i < count; ++i)
                plane[i] = static_cast<uint16_t>(~plane[i]);
        }
        dst.Write(to, first, count, ComponentType::U16, inks);
    }
};

bool IsPartner(const FormatRow& row) {
    using enum PixelFormatFamily;
    if (row.component == ComponentType::U8)
        return row.family == RGB || row.family == RGBA || row.family == RGBX || row.family == ARGB ||
               row.family == XRGB || row.family == BGR || row.family == BGRA || row.family == BGRX;
    return (row.family == RGB || row.family == RGBA) &&
           (row.component == ComponentType::U16 || row.component == ComponentType::F32 ||
            row.component == ComponentType::F64);
}

class PixelFormatInks final : public PixelFormatFixed {
public:
    using PixelFormatFixed::PixelFormatFixed;

    /// Knows this format, the formats that differ in inversion and component, the RGB formats of U8 except ABGR, and
    /// RGB and RGBA of U16, F32 and F64; the same into the other direction. Other components of the same inks go
    /// channel by channel.
    Result<ConvertPixelFunc> GetConvertPixelFromFunc(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                     ChannelOffsets dstOffsets, Bool defaultOffsets) const override {
        const PixelFormatFixed* src = Get(srcFormat);
        const bool fromColors = src && IsPartner(src->GetRow());
        if (!fromColors && !(src && IsInversion(src->GetRow())))
            return PixelFormatFixed::GetConvertPixelFromFunc(srcFormat, srcOffsets, dstOffsets, defaultOffsets);
        const PlaneSide to = TRY(CreateInkSide(_row, dstOffsets));
        const PlaneSide from =
            TRY(fromColors ? CreateColorSide(src->GetRow(), srcOffsets) : CreateInkSide(src->GetRow(), srcOffsets));
        return fromColors ? ConvertPixelFunc::Create(ColorsToInksConversion{from, to, _family.inverted})
                          : ConvertPixelFunc::Create(InversionConversion{from, to});
    }
    Result<ConvertPixelFunc> GetConvertPixelToFunc(const PixelFormat& dstFormat, ChannelOffsets srcOffsets,
                                                   ChannelOffsets dstOffsets, Bool) const override {
        const PixelFormatFixed* dst = Get(dstFormat);
        if (!dst || !IsPartner(dst->GetRow()))
            return ConvertPixelFunc();
        const PlaneSide from = TRY(CreateInkSide(_row, srcOffsets));
        const PlaneSide to = TRY(CreateColorSide(dst->GetRow(), dstOffsets));
        return ConvertPixelFunc::Create(InksToColorsConversion{from, to, _family.inverted});
    }

private:
    static Result<PlaneSide> CreateInkSide(const FormatRow& row, ChannelOffsets offsets) {
        return PlaneSide::Create(row, {3, 4, 5, 6}, offsets);
    }
    static Result<PlaneSide> CreateColorSide(const FormatRow& row, ChannelOffsets offsets) {
        return PlaneSide::Create(row, {0, 1, 2}, offsets);
    }
    /// With or without alpha alike, one of both inverted.
    bool IsInversion(const FormatRow& other) const {
        const FamilyRow& family = GetFamilyRow(other.family);
        return other.kind == FormatKind::Inks && family.order == _family.order && family.inverted != _family.inverted;
    }
};

}  // namespace

Result<ObjectRef> CreateInksPixelFormat(const FormatRow& row) { return ObjectRef(TRY(NewObj<PixelFormatInks>(row))); }

}  // namespace orvik
