// Two pixels with a brightness each and one chroma: Y U Y V in variant A, U Y V Y in variant B.

#include "pixel/special/gfx_image_pixelformat_yuv.h"

#include <algorithm>
#include <cstring>

#include "pixel/gfx_image_pixelformat_compare.h"
#include "pixel/gfx_image_pixelformat_fixed.h"
#include "pixel/special/gfx_image_pixelformat_planes.h"

namespace orvik {
namespace {

using pixel::kPlanePixels;
using pixel::PixelAt;
using pixel::PlaneSide;

Result<void> CheckPairs(Int count) {
    if (count > 0 && count % 2 != 0)
        return IllegalArgumentError("YUV needs an even number of pixels to convert.");
    return {};
}

struct FromYuvConversion {
    PlaneSide side;
    int luma;  ///< the place of the first brightness in a pair; chroma lies in the other byte

    Result<void> operator()(const PixelLine& dst, Int count, const PixelLineConst& src, CONVERTPIXELFLAGS) const {
        TRY(CheckPairs(count));
        uint8_t planes[3][kPlanePixels];
        const Int stride = src.stride.GetBytes() * 2;
        for (Int done = 0; done < count; done += kPlanePixels) {
            const Int block = std::min(kPlanePixels, count - done);
            const std::byte* from = PixelAt(src, done);
            for (Int i = 0; i < block / 2; ++i) {
                uint8_t pair[4];
                std::memcpy(pair, from + i * stride, 4);
                const int u = pair[1 - luma], v = pair[3 - luma];
                for (int k = 0; k < 2; ++k) {
                    const int y = pair[luma + 2 * k];
                    planes[0][2 * i + k] = pixel::YuvToRed(y, v);
                    planes[1][2 * i + k] = pixel::YuvToGreen(y, u, v);
                    planes[2][2 * i + k] = pixel::YuvToBlue(y, u);
                }
            }
            side.Write(dst, done, block, ComponentType::U8, planes);
            side.WriteAlpha(dst, done, block, nullptr, {nullptr, BITS(0)});
        }
        return {};
    }
};

struct ToYuvConversion {
    PlaneSide side;
    int luma;

    Result<void> operator()(const PixelLine& dst, Int count, const PixelLineConst& src, CONVERTPIXELFLAGS) const {
        TRY(CheckPairs(count));
        uint8_t planes[3][kPlanePixels];
        const Int stride = dst.stride.GetBytes() * 2;
        for (Int done = 0; done < count; done += kPlanePixels) {
            const Int block = std::min(kPlanePixels, count - done);
            side.Read(src, done, block, ComponentType::U8, planes);
            std::byte* to = PixelAt(dst, done);
            for (Int i = 0; i < block / 2; ++i) {
                const uint8_t *r = &planes[0][2 * i], *g = &planes[1][2 * i], *b = &planes[2][2 * i];
                uint8_t pair[4];
                pair[luma] = pixel::RgbToY(r[0], g[0], b[0]);
                pair[luma + 2] = pixel::RgbToY(r[1], g[1], b[1]);
                pair[1 - luma] = pixel::RgbToU(r[0], g[0], b[0]);
                pair[3 - luma] = pixel::RgbToV(r[0], g[0], b[0]);
                std::memcpy(to + i * stride, pair, 4);
            }
        }
        return {};
    }
};

bool IsPartner(const FormatRow& row) {
    using enum PixelFormatFamily;
    if (row.component == ComponentType::U8)
        return row.family == RGB || row.family == RGBA || row.family == RGBX || row.family == ARGB ||
               row.family == XRGB || row.family == BGR || row.family == BGRA || row.family == BGRX;
    return row.family == RGB && (row.component == ComponentType::U16 || row.component == ComponentType::F32 ||
                                 row.component == ComponentType::F64);
}

class PixelFormatSharedChroma final : public PixelFormatFixed {
public:
    using PixelFormatFixed::PixelFormatFixed;

    Result<void> Construct() override {
        TRY(ConstructNames());
        const Int y = Int(GetLuma()) * 8, u = 8 - y;
        const Int offsets[] = {y, u, u + 16, 16};
        for (int i = 0; i < _family.channelCount; ++i) {
            const ImageChannel channel = TRY(CreatePackedChannel(channeltypes::kUnknown, 8));
            TRY(AppendChannel(channel));
        }
        for (int i = 0; i < 4; ++i)
            _offsets[i] = BITS(offsets[i]);
        return {};
    }
    Int GetPackedPixelCount() const override { return 2; }
    /// Compares a pair.
    Bool IsIdenticalPixel(const void* a, const void* b, Int tolerance) const override {
        for (int i = 0; i < 4; ++i) {
            if (!pixel::IsIdenticalValue(ComponentType::U8, static_cast<const uint8_t*>(a) + i,
                                         static_cast<const uint8_t*>(b) + i, tolerance))
                return false;
        }
        return true;
    }
    /// The text of a pair.
    String PixToString(const void* pixel) const override {
        const auto* bytes = static_cast<const uint8_t*>(pixel);
        const int y = GetLuma(), u = 1 - y;
        return FormatString(_family.text, bytes[y], bytes[u], bytes[y + 2], bytes[u + 2]);
    }

    /// Knows this format, the RGB formats of U8 except ABGR, and RGB of U16, F32 and F64; the same into the other
    /// direction. The other variant is refused with "YUV unsupported": it is reached through RGB.
    Result<ConvertPixelFunc> GetConvertPixelFromFunc(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                     ChannelOffsets dstOffsets, Bool defaultOffsets) const override {
        const PixelFormatFixed* src = Get(srcFormat);
        if (src && src != this && src->GetRow().kind == FormatKind::SharedChroma)
            return UnsupportedArgumentError("YUV unsupported");
        if (!src || !IsPartner(src->GetRow()) || !std::ranges::equal(dstOffsets, GetChannelOffsets()))
            return PixelFormatFixed::GetConvertPixelFromFunc(srcFormat, srcOffsets, dstOffsets, defaultOffsets);
        const PlaneSide side = TRY(PlaneSide::Create(src->GetRow(), {0, 1, 2}, srcOffsets));
        return ConvertPixelFunc::Create(ToYuvConversion{side, GetLuma()});
    }
    Result<ConvertPixelFunc> GetConvertPixelToFunc(const PixelFormat& dstFormat, ChannelOffsets srcOffsets,
                                                   ChannelOffsets dstOffsets, Bool) const override {
        const PixelFormatFixed* dst = Get(dstFormat);
        if (dst && dst != this && dst->GetRow().kind == FormatKind::SharedChroma)
            return UnsupportedArgumentError("YUV unsupported");
        if (!dst || !IsPartner(dst->GetRow()) || !std::ranges::equal(srcOffsets, GetChannelOffsets()))
            return ConvertPixelFunc();
        const PlaneSide side = TRY(PlaneSide::Create(dst->GetRow(), {0, 1, 2}, dstOffsets));
        return ConvertPixelFunc::Create(FromYuvConversion{side, GetLuma()});
    }

private:
    /// The byte of a pair's first brightness.
    int GetLuma() const { return std::string_view(_row.variant).back() == 'A' ? 0 : 1; }
};

}  // namespace

Result<ObjectRef> CreateSharedChromaPixelFormat(const FormatRow& row) {
    return ObjectRef(TRY(NewObj<PixelFormatSharedChroma>(row)));
}

}  // namespace orvik
