
#include <algorithm>
#include <cstring>

#include "pixel/blend/gfx_image_pixelblend_block.h"

namespace orvik {
namespace {

using pixel::AdvanceLine;
using pixel::FindBlendConversion;
using pixel::kBlendBlockPixels;

constexpr Id kAlphaF32{"net.orvik.image.pixelformat.alpha.f32"}, kAlphaF64{"net.orvik.image.pixelformat.alpha.f64"};
constexpr int kAlphaIndex = 3;  ///< in a pixel of RGBA

/// Pixels of four Ts, alpha of one T.
template <class T>
Result<void> ApplyDirectly(const PixelLine& dst, const PixelLineConst& bg, const PixelLineConst& fg, Int count,
                           BLENDPIXELFLAGS) {
    auto* out = static_cast<std::byte*>(dst.data) + kAlphaIndex * sizeof(T);
    const auto* back = static_cast<const std::byte*>(bg.data) + kAlphaIndex * sizeof(T);
    const auto* mask = static_cast<const std::byte*>(fg.data);
    // Copies, since what is written could be the lines' own distances as far as the compiler knows.
    const Int outStep = dst.stride.GetBytes(), backStep = bg.stride.GetBytes(), maskStep = fg.stride.GetBytes();
    for (Int i = 0; i < count; ++i) {
        T alpha, factor;
        std::memcpy(&alpha, back + i * backStep, sizeof alpha);
        std::memcpy(&factor, mask + i * maskStep, sizeof factor);
        alpha *= factor;
        std::memcpy(out + i * outStep, &alpha, sizeof alpha);
    }
    return {};
}

/// Pixels with an alpha channel of whole components: nothing but that channel is read and written.
struct ApplyToChannel {
    ConvertPixelFunc readMask, readAlpha, writeAlpha;

    Result<void> operator()(const PixelLine& dst, const PixelLineConst& bg, const PixelLineConst& fg, Int count,
                            BLENDPIXELFLAGS) const {
        double alpha[kBlendBlockPixels], mask[kBlendBlockPixels];
        const PixelLine alphaLine{alpha, BITS(64)}, maskLine{mask, BITS(64)};
        for (Int done = 0; done < count; done += kBlendBlockPixels) {
            const Int block = std::min(kBlendBlockPixels, count - done);
            TRY(readMask(maskLine, block, AdvanceLine(fg, done), CONVERTPIXELFLAGS::NONE));
            TRY(readAlpha(alphaLine, block, AdvanceLine(bg, done), CONVERTPIXELFLAGS::NONE));
            for (Int i = 0; i < block; ++i)
                alpha[i] *= mask[i];
            TRY(writeAlpha(AdvanceLine(dst, done), block, alphaLine, CONVERTPIXELFLAGS::NONE));
        }
        return {};
    }
};

/// Pixels whose alpha is no component of its own: the destination is read as well, and written back with its own
/// colours.
struct ApplyToPixels {
    ConvertPixelFunc readMask, readPixels, writePixels;

    Result<void> operator()(const PixelLine& dst, const PixelLineConst& bg, const PixelLineConst& fg, Int count,
                            BLENDPIXELFLAGS) const {
        double mask[kBlendBlockPixels], back[kBlendBlockPixels * 4], out[kBlendBlockPixels * 4];
        const PixelLine maskLine{mask, BITS(64)}, backLine{back, BITS(256)}, outLine{out, BITS(256)};
        for (Int done = 0; done < count; done += kBlendBlockPixels) {
            const Int block = std::min(kBlendBlockPixels, count - done);
            TRY(readMask(maskLine, block, AdvanceLine(fg, done), CONVERTPIXELFLAGS::NONE));
            TRY(readPixels(backLine, block, AdvanceLine(bg, done), CONVERTPIXELFLAGS::NONE));
            TRY(readPixels(outLine, block, AdvanceLine(dst, done), CONVERTPIXELFLAGS::NONE));
            for (Int i = 0; i < block; ++i)
                out[i * 4 + kAlphaIndex] = back[i * 4 + kAlphaIndex] * mask[i];
            TRY(writePixels(AdvanceLine(dst, done), block, outLine, CONVERTPIXELFLAGS::NONE));
        }
        return {};
    }
};

class ApplyAlphaImpl final : public virtual ImagePixelBlendInterface {
public:
    Result<BlendPixelHandlerRef> GetBlendPixelHandler(const PixelFormat& bgFormat, ChannelOffsets bgOffsets,
                                                      const PixelFormat& fgFormat, ChannelOffsets fgOffsets,
                                                      Float) const override {
        if (pixel::IsPlainFormat(bgFormat, bgOffsets, pixelformats::kRgbaF32) &&
            pixel::IsPlainFormat(fgFormat, fgOffsets, kAlphaF32))
            return BlendPixelHandlerRef(&ApplyDirectly<float>);
        if (pixel::IsPlainFormat(bgFormat, bgOffsets, pixelformats::kRgbaF64) &&
            pixel::IsPlainFormat(fgFormat, fgOffsets, kAlphaF64))
            return BlendPixelHandlerRef(&ApplyDirectly<double>);

        if (static_cast<Int>(bgOffsets.size()) <= bgFormat->GetChannelCount())
            return IllegalArgumentError("Offsets are missing.");
        const PixelFormat alphaFormat = PixelFormats::Get(kAlphaF64), rgba = PixelFormats::Get(pixelformats::kRgbaF64);
        const ChannelOffsets alphaOffsets = alphaFormat->GetChannelOffsets(), rgbaOffsets = rgba->GetChannelOffsets();
        ConvertPixelFunc readMask = TRY(FindBlendConversion(alphaFormat, alphaOffsets, fgFormat, fgOffsets));
        ConvertPixelFunc readPixels = TRY(FindBlendConversion(rgba, rgbaOffsets, bgFormat, bgOffsets));
        ConvertPixelFunc writePixels = TRY(FindBlendConversion(bgFormat, bgOffsets, rgba, rgbaOffsets));
        if (!bgFormat->HasAlpha())  // nothing to write, and colours stay as they are
            return BlendPixelHandlerRef([](const PixelLine&, const PixelLineConst&, const PixelLineConst&, Int,
                                           BLENDPIXELFLAGS) -> Result<void> { return {}; });
        const Result<std::pair<PixelFormat, Int>> own = bgFormat->GetAlphaPixelFormat();
        if (own && bgFormat->GetChannels()[own->second]->GetComponentType() != ComponentType::None) {
            const BITS offsets[] = {bgOffsets[own->second], bgOffsets[bgOffsets.size() - 1]};
            ConvertPixelFunc readAlpha = TRY(FindBlendConversion(alphaFormat, alphaOffsets, own->first, offsets));
            ConvertPixelFunc writeAlpha = TRY(FindBlendConversion(own->first, offsets, alphaFormat, alphaOffsets));
            return BlendPixelHandlerRef::Create(
                ApplyToChannel{std::move(readMask), std::move(readAlpha), std::move(writeAlpha)});
        }
        return BlendPixelHandlerRef::Create(
            ApplyToPixels{std::move(readMask), std::move(readPixels), std::move(writePixels)});
    }
    Id GetId() const override { return blendmodes::kApplyAlpha; }
};

}  // namespace

Result<ImagePixelBlend> CreateApplyAlpha() { return ImagePixelBlend(TRY(NewObj<ApplyAlphaImpl>())); }

}  // namespace orvik
