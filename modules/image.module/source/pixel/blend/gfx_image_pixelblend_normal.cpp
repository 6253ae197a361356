// The blend modes that share the compositing frame.

#include <algorithm>

#include "base/registration.h"
#include "pixel/blend/gfx_image_pixelblend_block.h"
#include "pixel/blend/gfx_image_pixelblend_kernels.h"

namespace orvik {
namespace pixel {

Result<ConvertPixelFunc> FindBlendConversion(const PixelFormat& dstFormat, ChannelOffsets dstOffsets,
                                             const PixelFormat& srcFormat, ChannelOffsets srcOffsets) {
    bool isColorProfileConversion = false;
    return dstFormat->GetConvertPixelFunc(srcFormat, srcOffsets, dstOffsets, nullptr, nullptr, CONVERTPIXELFLAGS::NONE,
                                          isColorProfileConversion);
}

bool IsPlainFormat(const PixelFormat& format, ChannelOffsets offsets, const Id& id) {
    return format == PixelFormats::Get(id) && std::ranges::equal(offsets, format->GetChannelOffsets());
}

}  // namespace pixel

namespace {

using pixel::BlendFormula;

// --- Modes -----------------------------------------------------------------------------------------------------------

struct BlendModeRow {
    Id id;
    BlendFormula formula;
};

/// All modes in the order of their registry. A pass-through folder and dissolve blend as `over` does; a pattern is what
/// a caller of dissolve makes of the alpha.
constexpr BlendModeRow kModes[] = {
    {blendmodes::kOver, BlendFormula::Over},
    {blendmodes::kPassFolder, BlendFormula::Over},
    {blendmodes::kDissolve, BlendFormula::Over},
    {blendmodes::kDarken, BlendFormula::Darken},
    {blendmodes::kLighten, BlendFormula::Lighten},
    {blendmodes::kMultiply, BlendFormula::Multiply},
    {blendmodes::kScreen, BlendFormula::Screen},
    {blendmodes::kLinearDodge, BlendFormula::LinearDodge},
    {blendmodes::kAdd, BlendFormula::Add},
    {blendmodes::kSubtract, BlendFormula::Subtract},
    {blendmodes::kDifference, BlendFormula::Difference},
    {blendmodes::kExclusion, BlendFormula::Exclusion},
    {blendmodes::kAverage, BlendFormula::Average},
    {blendmodes::kOverlay, BlendFormula::Overlay},
    {blendmodes::kHardLight, BlendFormula::HardLight},
    {blendmodes::kSoftLight, BlendFormula::SoftLight},
    {blendmodes::kColorBurn, BlendFormula::ColorBurn},
    {blendmodes::kColorDodge, BlendFormula::ColorDodge},
    {blendmodes::kLinearBurn, BlendFormula::LinearBurn},
    {blendmodes::kStamp, BlendFormula::Stamp},
    {blendmodes::kPinLight, BlendFormula::PinLight},
    {blendmodes::kHardMix, BlendFormula::HardMix},
    {blendmodes::kVividLight, BlendFormula::VividLight},
    {blendmodes::kDivide, BlendFormula::Divide},
    {blendmodes::kFreeze, BlendFormula::Freeze},
    {blendmodes::kHeat, BlendFormula::Heat},
    {blendmodes::kGlow, BlendFormula::Glow},
    {blendmodes::kReflect, BlendFormula::Reflect},
    {blendmodes::kHypot, BlendFormula::Hypot},
    {blendmodes::kXor, BlendFormula::Xor},
    {blendmodes::kHue, BlendFormula::Hue},
    {blendmodes::kSaturation, BlendFormula::Saturation},
    {blendmodes::kColor, BlendFormula::Color},
    {blendmodes::kLuminance, BlendFormula::Luminance},
    {blendmodes::kDarker, BlendFormula::Darker},
    {blendmodes::kLighter, BlendFormula::Lighter},
    {blendmodes::kLevr, BlendFormula::Levr},
};

// --- Handlers --------------------------------------------------------------------------------------------------------

/// Four floats or doubles a pixel on all sides.
template <class T>
class DirectBlend {
public:
    DirectBlend(BlendFormula formula, Float opacity)
        : _kernel(pixel::GetBlendKernel<T>(formula)),
          _stridedKernel(pixel::GetStridedBlendKernel<T>(formula)),
          _opacity(static_cast<T>(opacity)) {}

    Result<void> operator()(const PixelLine& dst, const PixelLineConst& bg, const PixelLineConst& fg, Int count,
                            BLENDPIXELFLAGS) const {
        if (count <= 0)
            return {};
        if (_kernel && IsContiguous(dst) && IsContiguous(bg) && IsContiguous(fg))
            _kernel(static_cast<T*>(dst.data), static_cast<const T*>(bg.data), static_cast<const T*>(fg.data),
                    static_cast<size_t>(count), _opacity);
        else
            _stridedKernel(dst, bg, fg, count, _opacity);
        return {};
    }

private:
    static bool IsContiguous(const PixelLineConst& line) {
        return line.stride == BITS(sizeof(T) * 4 * 8) && reinterpret_cast<uintptr_t>(line.data) % alignof(T) == 0;
    }

    pixel::BlendKernel<T> _kernel;  ///< null where there are no vectors
    pixel::StridedBlendKernel<T> _stridedKernel;
    T _opacity;
};

/// Any formats, through pixels of four Ts.
template <class T>
class GeneralBlend {
public:
    /// @param format  the one with four Ts
    static Result<BlendPixelHandlerRef> Create(DirectBlend<T> blend, const PixelFormat& format,
                                               const PixelFormat& bgFormat, ChannelOffsets bgOffsets,
                                               const PixelFormat& fgFormat, ChannelOffsets fgOffsets) {
        const ChannelOffsets offsets = format->GetChannelOffsets();
        ConvertPixelFunc readFg = TRY(pixel::FindBlendConversion(format, offsets, fgFormat, fgOffsets));
        ConvertPixelFunc readBg = TRY(pixel::FindBlendConversion(format, offsets, bgFormat, bgOffsets));
        ConvertPixelFunc write = TRY(pixel::FindBlendConversion(bgFormat, bgOffsets, format, offsets));
        return BlendPixelHandlerRef::Create(
            GeneralBlend(blend, std::move(readFg), std::move(readBg), std::move(write)));
    }

    Result<void> operator()(const PixelLine& dst, const PixelLineConst& bg, const PixelLineConst& fg, Int count,
                            BLENDPIXELFLAGS) const {
        alignas(64) T back[pixel::kBlendBlockPixels * 4], front[pixel::kBlendBlockPixels * 4];
        const PixelLine backLine{back, kStride}, frontLine{front, kStride};
        for (Int done = 0; done < count; done += pixel::kBlendBlockPixels) {
            const Int block = std::min(pixel::kBlendBlockPixels, count - done);
            TRY(_readFg(frontLine, block, pixel::AdvanceLine(fg, done), CONVERTPIXELFLAGS::NONE));
            TRY(_readBg(backLine, block, pixel::AdvanceLine(bg, done), CONVERTPIXELFLAGS::NONE));
            TRY(_blend(backLine, backLine, frontLine, block, BLENDPIXELFLAGS::NONE));
            TRY(_write(pixel::AdvanceLine(dst, done), block, backLine, CONVERTPIXELFLAGS::NONE));
        }
        return {};
    }

private:
    static constexpr BITS kStride{sizeof(T) * 4 * 8};

    GeneralBlend(DirectBlend<T> blend, ConvertPixelFunc readFg, ConvertPixelFunc readBg, ConvertPixelFunc write)
        : _blend(blend), _readFg(std::move(readFg)), _readBg(std::move(readBg)), _write(std::move(write)) {}

    DirectBlend<T> _blend;
    ConvertPixelFunc _readFg, _readBg, _write;
};

/// The background as it is.
Result<BlendPixelHandlerRef> MakeBackgroundCopy(const PixelFormat& format, ChannelOffsets offsets) {
    ConvertPixelFunc copy = TRY(pixel::FindBlendConversion(format, offsets, format, offsets));
    return BlendPixelHandlerRef::Create(
        [copy = std::move(copy)](const PixelLine& dst, const PixelLineConst& bg, const PixelLineConst&, Int count,
                                 BLENDPIXELFLAGS) { return copy(dst, count, bg, CONVERTPIXELFLAGS::NONE); });
}

template <class T>
Result<BlendPixelHandlerRef> MakeHandler(BlendFormula formula, const Id& formatId, const PixelFormat& bgFormat,
                                         ChannelOffsets bgOffsets, const PixelFormat& fgFormat,
                                         ChannelOffsets fgOffsets, Float opacity) {
    const DirectBlend<T> blend(formula, opacity);
    if (pixel::IsPlainFormat(bgFormat, bgOffsets, formatId) && pixel::IsPlainFormat(fgFormat, fgOffsets, formatId))
        return opacity == 0 ? MakeBackgroundCopy(bgFormat, bgOffsets) : BlendPixelHandlerRef(blend);
    BlendPixelHandlerRef general =
        TRY(GeneralBlend<T>::Create(blend, PixelFormats::Get(formatId), bgFormat, bgOffsets, fgFormat, fgOffsets));
    // Opacity 0 must copy exactly, and a round trip through another format is not lossless.
    return opacity == 0 ? MakeBackgroundCopy(bgFormat, bgOffsets) : std::move(general);
}

class ImagePixelBlendImpl final : public virtual ImagePixelBlendInterface {
public:
    explicit ImagePixelBlendImpl(const BlendModeRow& row) : _row(row) {}

    Result<BlendPixelHandlerRef> GetBlendPixelHandler(const PixelFormat& bgFormat, ChannelOffsets bgOffsets,
                                                      const PixelFormat& fgFormat, ChannelOffsets fgOffsets,
                                                      Float opacity) const override {
        // Single precision is used only for its own format, in any channel order.
        if (bgFormat == fgFormat && bgFormat == PixelFormats::Get(pixelformats::kRgbaF32))
            return MakeHandler<float>(_row.formula, pixelformats::kRgbaF32, bgFormat, bgOffsets, fgFormat, fgOffsets,
                                      opacity);
        return MakeHandler<double>(_row.formula, pixelformats::kRgbaF64, bgFormat, bgOffsets, fgFormat, fgOffsets,
                                   opacity);
    }
    Id GetId() const override { return _row.id; }

private:
    const BlendModeRow& _row;
};

Result<void> RegisterMode(Publisher& publisher, const Id& id, const ImagePixelBlend& mode) {
    TRY(publisher.PublishObject(id, mode));
    return publisher.AddToRegistry(kBlendModeRegistry, id, mode);
}

}  // namespace

Result<void> RegisterPixelBlends(Publisher& publisher) {
    TRY(RegisterMode(publisher, blendmodes::kApplyAlpha, TRY(CreateApplyAlpha())));
    for (const BlendModeRow& row : kModes)
        TRY(RegisterMode(publisher, row.id, TRY(NewObj<ImagePixelBlendImpl>(row))));
    return {};
}

}  // namespace orvik
