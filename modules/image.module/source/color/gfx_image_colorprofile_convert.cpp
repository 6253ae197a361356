#include "color/gfx_image_colorprofile_convert.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "base/registration.h"
#include "pixel/gfx_image_pixelformat_route.h"

namespace orvik {
namespace {

constexpr Int kBlockPixels = 64;
constexpr Int kMaxNativeBytes = 32;  ///< four doubles
constexpr Int kMaxAlphaBytes = 8;
/// Counts go to the library as 32-bit numbers.
constexpr Int kMaxRunPixels = 1 << 24;
constexpr uint8_t kOpaque = 255;  ///< alpha.u8, for sources without alpha

struct NativeWord {
    std::string_view name;
    cmsUInt32Number word;
};
/// All formats that the library reads and writes directly. ACMYK keeps its alpha behind the inks, which the library
/// calls an extra channel.
constexpr NativeWord kNativeWords[] = {
    {"rgb.u8", 0x40019},    {"rgb.u16", 0x4001A},    {"rgb.f32", 0x44001C},   {"rgb.f64", 0x440018},
    {"bgr.u8", 0x40419},    {"bgr.u16", 0x4041A},    {"bgr.f32", 0x44041C},   {"rgba.u8", 0x40099},
    {"rgba.u16", 0x4009A},  {"rgba.f32", 0x44009C},  {"rgba.f64", 0x440098},  {"argb.u8", 0x44099},
    {"argb.u16", 0x4409A},  {"argb.f32", 0x44409C},  {"argb.f64", 0x444098},  {"bgra.u8", 0x44499},
    {"grey.u8", 0x30009},   {"grey.u16", 0x3000A},   {"grey.f32", 0x43000C},  {"grey.f64", 0x430008},
    {"agrey.u8", 0x34089},  {"agrey.u16", 0x3408A},  {"agrey.f32", 0x43408C}, {"agrey.f64", 0x434088},
    {"greya.u8", 0x30089},  {"greya.u16", 0x3008A},  {"greya.f32", 0x43008C}, {"greya.f64", 0x430088},
    {"cmyk.u8", 0x60021},   {"cmyk.u16", 0x60022},   {"cmyk.f32", 0x460024},  {"acmyk.u8", 0x600A1},
    {"acmyk.u16", 0x600A2}, {"acmyk.f32", 0x4600A4},
};
constexpr std::string_view kFormatPrefix = "net.orvik.image.pixelformat.";

/// @return 0 for a format that the library does not know
cmsUInt32Number FindWord(const PixelFormat& format) {
    const Id id = format->GetId();
    std::string_view name(id.GetText());
    if (!name.starts_with(kFormatPrefix))
        return 0;
    name.remove_prefix(kFormatPrefix.size());
    const auto* row = std::ranges::find(kNativeWords, name, &NativeWord::name);
    return row == std::end(kNativeWords) ? 0 : row->word;
}

/// The nearest formats by width of a component: 1, 2, 4 and 8 bytes.
struct NativeRow {
    Id space;
    Id plain[4], withAlpha[4];
};
constexpr NativeRow kNativeRows[] = {
    {colorspaces::kRgb,
     {"net.orvik.image.pixelformat.rgb.u8", "net.orvik.image.pixelformat.rgb.u16",
      "net.orvik.image.pixelformat.rgb.f32", "net.orvik.image.pixelformat.rgb.f64"},
     {"net.orvik.image.pixelformat.argb.u8", "net.orvik.image.pixelformat.argb.u16",
      "net.orvik.image.pixelformat.argb.f32", "net.orvik.image.pixelformat.argb.f64"}},
    {colorspaces::kGrey,
     {"net.orvik.image.pixelformat.grey.u8", "net.orvik.image.pixelformat.grey.u16",
      "net.orvik.image.pixelformat.grey.f32", "net.orvik.image.pixelformat.grey.f64"},
     {"net.orvik.image.pixelformat.agrey.u8", "net.orvik.image.pixelformat.agrey.u16",
      "net.orvik.image.pixelformat.agrey.f32", "net.orvik.image.pixelformat.agrey.f64"}},
    {colorspaces::kCmyk,
     {"net.orvik.image.pixelformat.cmyk.u8", "net.orvik.image.pixelformat.cmyk.u16",
      "net.orvik.image.pixelformat.cmyk.f32", "net.orvik.image.pixelformat.cmyk.f32"},
     {"net.orvik.image.pixelformat.acmyk.u8", "net.orvik.image.pixelformat.acmyk.u16",
      "net.orvik.image.pixelformat.acmyk.f32", "net.orvik.image.pixelformat.acmyk.f32"}},
};

/// @return index into a native row, or -1
int FindWidth(const PixelFormat& format) {
    // Mantissas of 8 bits with an exponent span what only floats do.
    static constexpr Id kRgbe{"net.orvik.image.pixelformat.rgb.rgbe"};
    const Block<const ImageChannel> channels = format->GetChannels();
    if (channels.empty())
        return -1;
    if (channels[0]->GetComponentType() == ComponentType::F16 || format->GetId() == kRgbe)
        return 2;
    switch (channels[0]->GetChannelBits().GetBytes()) {
        case 1:
            return 0;
        case 2:
            return 1;
        case 4:
            return 2;
        case 8:
            return 3;
        default:
            return -1;
    }
}

PixelLineConst Advance(const PixelLineConst& line, Int pixels) {
    return {static_cast<const std::byte*>(line.data) + pixels * line.stride.GetBits() / 8, line.stride, line.phase};
}
PixelLine Advance(const PixelLine& line, Int pixels) {
    return {static_cast<std::byte*>(line.data) + pixels * line.stride.GetBits() / 8, line.stride, line.phase};
}
PixelLine Shift(const PixelLine& line, Int bytes) {
    return {static_cast<std::byte*>(line.data) + bytes, line.stride, 0};
}
PixelLineConst Shift(const PixelLineConst& line, Int bytes) {
    return {static_cast<const std::byte*>(line.data) + bytes, line.stride, 0};
}

Result<ConvertPixelFunc> FindPlainConversion(const PixelFormat& dst, ChannelOffsets dstOffsets, const PixelFormat& src,
                                             ChannelOffsets srcOffsets) {
    bool isColorProfileConversion = false;
    return dst->GetConvertPixelFunc(src, srcOffsets, dstOffsets, nullptr, nullptr, CONVERTPIXELFLAGS::NONE,
                                    isColorProfileConversion);
}

/// Changes the four inks of each float CMYK pixel; alpha behind them stays.
template <class F>
void ForEachInk(std::byte* pixels, Int pixelBytes, Int count, F change) {
    for (Int i = 0; i < count; ++i) {
        float inks[4];
        std::memcpy(inks, pixels + i * pixelBytes, sizeof(inks));
        for (float& ink : inks)
            ink = change(ink);
        std::memcpy(pixels + i * pixelBytes, inks, sizeof(inks));
    }
}

Result<cmsUInt32Number> MapIntent(COLORCONVERSIONINTENT intent) {
    switch (intent) {
        case COLORCONVERSIONINTENT::PERCEPTUAL:
            return cmsUInt32Number(INTENT_PERCEPTUAL);
        case COLORCONVERSIONINTENT::RELATIVE_COLORIMETRIC:
        case COLORCONVERSIONINTENT::ABSOLUTE_COLORIMETRIC:  // a picture's white stays white
            return cmsUInt32Number(INTENT_RELATIVE_COLORIMETRIC);
        case COLORCONVERSIONINTENT::SATURATION:
            return cmsUInt32Number(INTENT_SATURATION);
    }
    return IllegalArgumentError("Illegal COLORCONVERSIONINTENT");
}

std::optional<TransferCurve> FindCurve(const PixelFormat& srcFormat, const ColorProfile& srcProfile,
                                       const PixelFormat& dstFormat, const ColorProfile& dstProfile) {
    if (srcFormat->GetId() != pixelformats::kRgbF32 || dstFormat->GetId() != pixelformats::kRgbF32)
        return {};
    const uint32_t linear = colorprofiles::Get(colorprofiles::kLinearRgb).GetCrc();
    const uint32_t srgb = colorprofiles::Get(colorprofiles::kSrgb).GetCrc();
    if (srcProfile.GetCrc() == linear && dstProfile.GetCrc() == srgb)
        return TransferCurve::LinearToSrgb;
    if (srcProfile.GetCrc() == srgb && dstProfile.GetCrc() == linear)
        return TransferCurve::SrgbToLinear;
    return {};
}

}  // namespace

// --- Setting up ------------------------------------------------------------------------------------------------------

Result<PixelFormat> ColorProfileConvertImpl::FindNearestNativeFormat(const PixelFormat& format) {
    if (!format)
        return IllegalArgumentError("no profile found");
    // The width of an index says nothing about the precision of its colour.
    if (const auto indexed = Cast<PixelFormatIndexedColorInterface>(format);
        indexed && indexed->GetColorTablePixelFormat())
        return FindNearestNativeFormat(indexed->GetColorTablePixelFormat());
    const ColorSpace space = format->GetColorSpace();
    Id spaceId = space->GetId();
    if (spaceId == colorspaces::kYuv)
        spaceId = colorspaces::kRgb;
    const auto* row = std::ranges::find(kNativeRows, spaceId, &NativeRow::space);
    const int width = FindWidth(format);
    if (!space || row == std::end(kNativeRows) || width < 0)
        return UnsupportedArgumentError("No compatible color profile conversion pixel format found for: @.", format);
    return PixelFormats::Get(format->HasAlpha() ? row->withAlpha[width] : row->plain[width]);
}

Result<void> ColorProfileConvertImpl::Side::Init(const PixelFormat& format, ChannelOffsets offsets) {
    // A format that the library knows is not rearranged: the values are the same.
    word = FindWord(format);
    native = word ? format : TRY(FindNearestNativeFormat(format));
    if (!word)
        word = FindWord(native);
    if (!word)
        return UnsupportedArgumentError("Unsupported color conversion pixel format @.", native);
    nativeBytes = native->GetBitsPerPixel().GetBytes();
    componentBytes = nativeBytes / native->GetChannelCount();
    hasAlpha = native->HasAlpha();
    return InitAlpha(format, offsets);
}

Result<void> ColorProfileConvertImpl::Side::InitAlpha(const PixelFormat& format, ChannelOffsets offsets) {
    if (!hasAlpha)
        return {};
    // Alpha bits of a packed word have no format of their own, so they travel in the native pixels.
    const Result<std::pair<PixelFormat, Int>> real = format->GetAlphaPixelFormat();
    alphaIsReal = real && real->second < Int(offsets.size()) && format->GetChannels()[0]->GetDataType();
    const auto [alpha, index] = alphaIsReal ? *real : TRY(native->GetAlphaPixelFormat());
    alphaFormat = alpha;
    alphaOffset = (alphaIsReal ? offsets : native->GetChannelOffsets())[index].GetBytes();
    return {};
}

Result<Bool> ColorProfileConvertImpl::Init(const PixelFormat& srcFormat, const ColorProfile& srcProfile,
                                           const PixelFormat& dstFormat, const ColorProfile& dstProfile,
                                           COLORCONVERSIONINTENT intent, COLORCONVERSIONFLAGS flags) {
    return InitWithOffsets(srcFormat, srcFormat->GetChannelOffsets(), srcProfile, dstFormat,
                           dstFormat->GetChannelOffsets(), dstProfile, intent, flags);
}

Result<Bool> ColorProfileConvertImpl::InitWithOffsets(const PixelFormat& srcFormat, ChannelOffsets srcOffsets,
                                                      const ColorProfile& srcProfile, const PixelFormat& dstFormat,
                                                      ChannelOffsets dstOffsets, const ColorProfile& dstProfile,
                                                      COLORCONVERSIONINTENT intent, COLORCONVERSIONFLAGS flags) {
    if (!srcFormat || !dstFormat || !srcProfile.HasProfile() || !dstProfile.HasProfile())
        return IllegalArgumentError("no profile found");
    if (srcOffsets.size() != srcFormat->GetChannelOffsets().size() ||
        dstOffsets.size() != dstFormat->GetChannelOffsets().size())
        return IllegalArgumentError("@ and @ channel offsets do not fit @ and @.", srcOffsets.size(), dstOffsets.size(),
                                    srcFormat, dstFormat);
    if (_transform || _curve)
        return IllegalStateError("The conversion is set up already.");
    if (srcProfile == dstProfile)
        return false;
    _hash = HashPointerBits(srcProfile.GetHashCode() * 31 + dstProfile.GetHashCode()) * 31 +
            HashPointerBits(srcFormat->GetId().GetValue() * 31 + dstFormat->GetId().GetValue());

    if (const auto curve = FindCurve(srcFormat, srcProfile, dstFormat, dstProfile)) {
        for (size_t i = 0; i < 3; ++i) {
            _srcOffsets[i] = srcOffsets[i].GetBytes();
            _dstOffsets[i] = dstOffsets[i].GetBytes();
        }
        _curve = curve;
        return true;
    }

    TRY(_src.Init(srcFormat, srcOffsets));
    TRY(_dst.Init(dstFormat, dstOffsets));
    const cmsUInt32Number libraryIntent = TRY(MapIntent(intent));
    const cmsUInt32Number libraryFlags =
        HasFlag(flags, COLORCONVERSIONFLAGS::BLACKPOINTCOMPENSATION) ? cmsFLAGS_BLACKPOINTCOMPENSATION : 0;
    _library = ColorLibrary::Of(srcProfile);
    if (!_library)
        return IllegalArgumentError("no profile found");
    const Ref<ColorTransform> transform = TRY(_library.GetObject()->GetTransform(
        {srcProfile.GetEntry(), dstProfile.GetEntry(), _src.word, _dst.word, libraryIntent, libraryFlags}));
    const auto isDirect = [](const Side& side, const PixelFormat& format, ChannelOffsets offsets) {
        return side.native == format && std::ranges::equal(offsets, format->GetChannelOffsets());
    };
    const ChannelOffsets srcNative = _src.native->GetChannelOffsets(), dstNative = _dst.native->GetChannelOffsets();
    _src.isDirect = isDirect(_src, srcFormat, srcOffsets);
    _dst.isDirect = isDirect(_dst, dstFormat, dstOffsets);
    _src.bridge = _src.isDirect ? pixel::MakePixelCopy(srcFormat->GetBitsPerPixel(), 1)
                                : TRY(FindPlainConversion(_src.native, srcNative, srcFormat, srcOffsets));
    _dst.bridge = _dst.isDirect ? pixel::MakePixelCopy(dstFormat->GetBitsPerPixel(), 1)
                                : TRY(FindPlainConversion(dstFormat, dstOffsets, _dst.native, dstNative));
    TRY(InitAlphaConversion());
    _transform = transform;
    return true;
}

Result<void> ColorProfileConvertImpl::InitAlphaConversion() {
    if (!_dst.hasAlpha)
        return {};
    const PixelFormat source = _src.hasAlpha ? _src.alphaFormat : PixelFormats::Get(pixelformats::kAlphaU8);
    _alpha = TRY(FindPlainConversion(_dst.alphaFormat, _dst.alphaFormat->GetChannelOffsets(), source,
                                     source->GetChannelOffsets()));
    _alphaCopy = pixel::MakePixelCopy(_dst.alphaFormat->GetBitsPerPixel(), 1);
    return {};
}

// --- Running ---------------------------------------------------------------------------------------------------------

bool ColorProfileConvertImpl::Side::CanWorkOn(const PixelLineConst& line) const {
    // A stride goes to the library as an unsigned 32-bit number of bytes, and it reads whole components.
    const Int stride = line.stride.GetBits() / 8;
    return isDirect && !HasPercents() && line.stride.GetBits() % 8 == 0 && stride >= 0 && stride <= 0xFFFFFFFF &&
           stride % componentBytes == 0 && reinterpret_cast<uintptr_t>(line.data) % componentBytes == 0;
}

Result<void> ColorProfileConvertImpl::Convert(const PixelLine& dst, const PixelLineConst& src, Int count) const {
    if (count <= 0)
        return {};
    if (_curve)
        return ConvertByFormula(dst, src, count);
    if (!_transform)
        return IllegalStateError("No color conversion was set up.");
    if (_src.CanWorkOn(src) && _dst.CanWorkOn(dst))
        return ConvertWhole(dst, src, count);
    for (Int done = 0; done < count; done += kBlockPixels)
        TRY(ConvertBlock(Advance(dst, done), Advance(src, done), std::min(kBlockPixels, count - done)));
    return {};
}

/// The source's alpha, or the one opaque value for all pixels.
PixelLineConst ColorProfileConvertImpl::GetSourceAlpha(const PixelLineConst& pixels) const {
    return _src.hasAlpha ? Shift(pixels, _src.alphaOffset) : PixelLineConst{&kOpaque, BITS(0), 0};
}

Result<void> ColorProfileConvertImpl::ConvertWhole(const PixelLine& dst, const PixelLineConst& src, Int count) const {
    const Int srcStride = src.stride.GetBytes(), dstStride = dst.stride.GetBytes();
    const bool dense = srcStride == _src.nativeBytes && dstStride == _dst.nativeBytes;
    for (Int done = 0; done < count; done += kMaxRunPixels) {
        const auto pixels = static_cast<cmsUInt32Number>(std::min(kMaxRunPixels, count - done));
        // Pixels at a distance are lines of one pixel.
        cmsDoTransformLineStride(_transform->GetHandle(), Advance(src, done).data, Advance(dst, done).data,
                                 dense ? pixels : 1, dense ? 1 : pixels, static_cast<cmsUInt32Number>(srcStride),
                                 static_cast<cmsUInt32Number>(dstStride), 0, 0);
    }
    return _alpha ? _alpha(Shift(dst, _dst.alphaOffset), count, GetSourceAlpha(src), CONVERTPIXELFLAGS::NONE)
                  : Result<void>();
}

Result<void> ColorProfileConvertImpl::ConvertBlock(const PixelLine& dst, const PixelLineConst& src, Int count) const {
    constexpr auto kNone = CONVERTPIXELFLAGS::NONE;
    alignas(64) std::byte srcBuffer[kBlockPixels * kMaxNativeBytes];
    alignas(64) std::byte dstBuffer[kBlockPixels * kMaxNativeBytes] = {};  // the transform leaves alpha alone
    alignas(16) std::byte alphaBuffer[kBlockPixels * kMaxAlphaBytes];
    const PixelLine srcNative{srcBuffer, BITS(_src.nativeBytes * 8), 0};
    const PixelLine dstNative{dstBuffer, BITS(_dst.nativeBytes * 8), 0};

    TRY(_src.bridge(srcNative, count, src, kNone));
    // Read before the colours are written, which may be to the same line.
    PixelLine alpha{nullptr, BITS(0)};
    if (_alpha) {
        alpha = {alphaBuffer, _dst.alphaFormat->GetBitsPerPixel(), 0};
        const bool inSource = !_src.hasAlpha || _src.alphaIsReal;
        TRY(_alpha(alpha, count, GetSourceAlpha(inSource ? src : PixelLineConst(srcNative)), kNone));
    }
    if (_src.HasPercents())
        ForEachInk(srcBuffer, _src.nativeBytes, count, [](float ink) { return ink * 100; });
    cmsDoTransform(_transform->GetHandle(), srcBuffer, dstBuffer, static_cast<cmsUInt32Number>(count));
    if (_dst.HasPercents())
        ForEachInk(dstBuffer, _dst.nativeBytes, count, [](float ink) { return ink / 100; });
    if (_alpha && !_dst.alphaIsReal)
        TRY(_alphaCopy(Shift(dstNative, _dst.alphaOffset), count, alpha, kNone));
    TRY(_dst.bridge(dst, count, dstNative, kNone));
    if (_alpha && _dst.alphaIsReal)
        TRY(_alphaCopy(Shift(dst, _dst.alphaOffset), count, alpha, kNone));
    return {};
}

Result<void> ColorProfileConvertImpl::ConvertByFormula(const PixelLine& dst, const PixelLineConst& src,
                                                       Int count) const {
    constexpr Int kDense = 3 * sizeof(float);
    const Int srcStride = src.stride.GetBits() / 8, dstStride = dst.stride.GetBits() / 8;
    const auto isDense = [](Int stride, const Int* offsets) {
        return stride == kDense && offsets[0] == 0 && offsets[1] == 4 && offsets[2] == 8;
    };
    if (isDense(srcStride, _srcOffsets) && isDense(dstStride, _dstOffsets)) {
        ConvertTransferCurve(*_curve, static_cast<float*>(dst.data), static_cast<const float*>(src.data),
                             static_cast<size_t>(count) * 3);
        return {};
    }
    for (Int done = 0; done < count; done += kBlockPixels) {
        const Int block = std::min(kBlockPixels, count - done);
        const auto* from = static_cast<const std::byte*>(src.data) + done * srcStride;
        auto* to = static_cast<std::byte*>(dst.data) + done * dstStride;
        float values[3][kBlockPixels];
        for (int c = 0; c < 3; ++c) {
            for (Int i = 0; i < block; ++i)
                std::memcpy(&values[c][i], from + i * srcStride + _srcOffsets[c], sizeof(float));
            ConvertTransferCurve(*_curve, values[c], values[c], static_cast<size_t>(block));
        }
        for (int c = 0; c < 3; ++c) {
            for (Int i = 0; i < block; ++i)
                std::memcpy(to + i * dstStride + _dstOffsets[c], &values[c][i], sizeof(float));
        }
    }
    return {};
}

Result<void> RegisterColorProfileConvert(Publisher& publisher) {
    return publisher.PublishClass<ColorProfileConvertImpl>(kColorProfileConvertClass);
}

}  // namespace orvik
