// Three mantissas and one exponent, a byte each.

#include "pixel/special/gfx_image_pixelformat_rgbe.h"

#include <algorithm>
#include <cstring>

#include "pixel/gfx_image_pixelformat_fixed.h"
#include "pixel/special/gfx_image_pixelformat_planes.h"

namespace orvik {
namespace {

using pixel::kPlanePixels;
using pixel::PixelAt;
using pixel::PlaneSide;

struct DecodeConversion {
    PlaneSide side;

    Result<void> operator()(const PixelLine& dst, Int count, const PixelLineConst& src, CONVERTPIXELFLAGS) const {
        float planes[3][kPlanePixels];
        const Int stride = src.stride.GetBytes();
        for (Int done = 0; done < count; done += kPlanePixels) {
            const Int block = std::min(kPlanePixels, count - done);
            const std::byte* from = PixelAt(src, done);
            for (Int i = 0; i < block; ++i) {
                uint8_t bytes[4];
                std::memcpy(bytes, from + i * stride, 4);
                const float scale = pixel::GetRgbeScale(bytes[3]);
                for (int c = 0; c < 3; ++c)
                    planes[c][i] = pixel::DecodeRgbe(bytes[c], scale);
            }
            side.Write(dst, done, block, ComponentType::F32, planes);
        }
        return {};
    }
};

struct EncodeConversion {
    PlaneSide side;

    Result<void> operator()(const PixelLine& dst, Int count, const PixelLineConst& src, CONVERTPIXELFLAGS) const {
        float planes[3][kPlanePixels];
        const Int stride = dst.stride.GetBytes();
        for (Int done = 0; done < count; done += kPlanePixels) {
            const Int block = std::min(kPlanePixels, count - done);
            side.Read(src, done, block, ComponentType::F32, planes);
            std::byte* to = PixelAt(dst, done);
            for (Int i = 0; i < block; ++i) {
                float colors[3];
                for (int c = 0; c < 3; ++c)
                    colors[c] = pixel::LimitForRgbe(planes[c][i]);
                const auto scale = pixel::MakeRgbeScale(std::max(std::max(colors[0], colors[1]), colors[2]));
                uint8_t bytes[4] = {0, 0, 0, scale.exponent};
                for (int c = 0; c < 3; ++c)
                    bytes[c] = pixel::EncodeRgbe(colors[c], scale.factor);
                std::memcpy(to + i * stride, bytes, 4);
            }
        }
        return {};
    }
};

bool IsPartner(const FormatRow& row) {
    if (row.family != PixelFormatFamily::RGB)
        return false;
    return row.component == ComponentType::U8 || row.component == ComponentType::U16 ||
           row.component == ComponentType::F16 || row.component == ComponentType::F32 ||
           row.component == ComponentType::F64;
}

class PixelFormatSharedExponent final : public PixelFormatFixed {
public:
    using PixelFormatFixed::PixelFormatFixed;

    Result<void> Construct() override {
        TRY(ConstructNames());
        for (int i = 0; i < _family.channelCount; ++i) {
            const Id type = GetChannelTypeOfDigit(GetDigit(_family.order, i), false);
            const ImageChannel mantissa = TRY(CreatePackedChannel(type, 8));
            TRY(AppendChannel(mantissa));
        }
        _offsets.GetLast() = BITS(32);
        return {};
    }
    ColorProfile GetDefaultColorProfile() const override { return _colorSpace->GetDefaultLinearColorProfile(); }
    Bool IsIdenticalPixel(const void* a, const void* b, Int) const override { return std::memcmp(a, b, 4) == 0; }
    String PixToString(const void* pixel) const override {
        const auto* bytes = static_cast<const uint8_t*>(pixel);
        return FormatString("R @ G @ B @ E @", bytes[0], bytes[1], bytes[2], bytes[3]);
    }

    /// Knows itself and RGB of U8, U16 and the floats; the same into the other direction.
    Result<ConvertPixelFunc> GetConvertPixelFromFunc(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                     ChannelOffsets dstOffsets, Bool defaultOffsets) const override {
        const PixelFormatFixed* src = Get(srcFormat);
        if (!src || !IsPartner(src->GetRow()) || !std::ranges::equal(dstOffsets, GetChannelOffsets()))
            return PixelFormatFixed::GetConvertPixelFromFunc(srcFormat, srcOffsets, dstOffsets, defaultOffsets);
        const PlaneSide side = TRY(PlaneSide::Create(src->GetRow(), {0, 1, 2}, srcOffsets));
        return ConvertPixelFunc::Create(EncodeConversion{side});
    }
    Result<ConvertPixelFunc> GetConvertPixelToFunc(const PixelFormat& dstFormat, ChannelOffsets srcOffsets,
                                                   ChannelOffsets dstOffsets, Bool) const override {
        const PixelFormatFixed* dst = Get(dstFormat);
        if (!dst || !IsPartner(dst->GetRow()) || !std::ranges::equal(srcOffsets, GetChannelOffsets()))
            return ConvertPixelFunc();
        const PlaneSide side = TRY(PlaneSide::Create(dst->GetRow(), {0, 1, 2}, dstOffsets));
        return ConvertPixelFunc::Create(DecodeConversion{side});
    }
};

}  // namespace

Result<ObjectRef> CreateSharedExponentPixelFormat(const FormatRow& row) {
    return ObjectRef(TRY(NewObj<PixelFormatSharedExponent>(row)));
}

}  // namespace orvik
