#include "imexport/bmp/media_io_bmp.h"

#include "orvik/gfx_image_colorprofileconvert.h"

namespace orvik {

using namespace bmp;

namespace {

constexpr uint32_t kRedMask = 0xFF0000, kGreenMask = 0xFF00, kBlueMask = 0xFF, kAlphaMask = 0xFF000000;
constexpr uint32_t kIntentImages = 4;  ///< perceptual
constexpr Int kRowAlignment = 4;

struct Generation {
    Id option;
    uint32_t headerSize;
};
constexpr Id kV3{"V3"};
constexpr Generation kGenerations[] = {{kV3, kV3Size}, {"V4", kV4Size}, {"V5", kV5Size}};

Result<uint32_t> GetHeaderSize(const Id& option) {
    for (const Generation& generation : kGenerations) {
        if (generation.option == option)
            return generation.headerSize;
    }
    return IllegalArgumentError("Invalid header type: @.", option);
}

/// True when a profile matches sRGB to within one 8-bit step: files hold sRGB in many forms.
Result<Bool> IsLikeSrgb(const ColorProfile& profile) {
    const ColorProfile srgb = colorprofiles::Get(colorprofiles::kSrgb);
    if (profile == srgb)
        return true;
    constexpr uint8_t kColors[][3] = {{0, 0, 0},   {64, 64, 64}, {128, 128, 128}, {255, 255, 255},
                                      {255, 0, 0}, {0, 255, 0},  {0, 0, 255},     {200, 100, 50}};
    constexpr Int kCount = std::size(kColors);
    uint8_t converted[kCount][3];
    const PixelFormat format = PixelFormats::Get(pixelformats::kRgbU8);
    const auto convert = TRY(ClassRef(kColorProfileConvertClass).Create<ColorProfileConvertInterface>());
    TRY(convert->Init(format, profile, format, srgb, COLORCONVERSIONINTENT::RELATIVE_COLORIMETRIC,
                      COLORCONVERSIONFLAGS::NONE));
    TRY(convert->Convert({converted, format->GetBitsPerPixel()}, {kColors, format->GetBitsPerPixel()}, kCount));
    return std::equal(&converted[0][0], &converted[0][0] + sizeof(converted), &kColors[0][0],
                      [](int a, int b) { return std::abs(a - b) <= 1; });
}

/// Writes 24 bits, or with "V4" and "V5" 32 bits if there is alpha. Only "V5" can embed a profile; for the others the
/// pixels are converted to sRGB. The default is the oldest generation that holds the picture: many programs cannot open
/// "V5" with a profile.
class BmpExporter : public ImageExporter {
public:
    BmpExporter() : ImageExporter(kFormat) {}

protected:
    Bool KeepsAlpha() const override { return GetPicture().settings.Get(mediaexport::kBmpInfoHeader, Id()) != kV3; }
    Result<void> OpenRows() override;
    Result<void> WriteFile(const OutputStreamRef& output) override;

private:
    static int32_t ToPixelsPerMetre(Float dpi) { return ToResolution(dpi * 11808.0 / 300.0 + 0.5); }
    Result<uint32_t> ChooseHeaderSize() const;
    Result<void> WriteHeaders(EndianWriter& out) const;
    Result<void> WriteInfoHeader(EndianWriter& out) const;
    Result<void> WriteColorFields(EndianWriter& out) const;
    Result<void> WriteRows(const OutputStreamRef& output) const;

    Int GetBitCount() const { return _hasAlpha ? 32 : 24; }
    Int GetPixelBytes() const { return _rowBytes * GetPicture().height; }
    Int GetProfileBytes() const { return _headerSize == kV5Size ? Int(_profileBytes.size()) : 0; }

    uint32_t _headerSize = 0;
    bool _hasAlpha = false;
    ColorProfile _profile;  ///< keeps the bytes alive
    Block<const std::byte> _profileBytes;
    Int _rowBytes = 0;
};

Result<uint32_t> BmpExporter::ChooseHeaderSize() const {
    const Picture& picture = GetPicture();
    if (const Id option = picture.settings.Get(mediaexport::kBmpInfoHeader, Id()); option != Id())
        return GetHeaderSize(option);
    const Bool isSrgb = TRY(IsLikeSrgb(ChooseProfile(PixelFormats::Get(pixelformats::kBgrU8))));
    return !isSrgb ? kV5Size : picture.HasAlpha() ? kV4Size : kV3Size;
}

Result<void> BmpExporter::OpenRows() {
    const Picture& picture = GetPicture();
    _headerSize = TRY(ChooseHeaderSize());
    _hasAlpha = picture.HasAlpha() && _headerSize != kV3Size;
    const PixelFormat rowFormat = PixelFormats::Get(_hasAlpha ? pixelformats::kBgraU8 : pixelformats::kBgrU8);
    _rowBytes = rowFormat->GetBytesPerLine(picture.width, kRowAlignment);

    _profile = ChooseProfile(rowFormat);
    _profileBytes = {};
    if (_headerSize == kV5Size)
        _profileBytes = TRY(_profile.WriteProfileToMemory());
    else if (!picture.settings.Get(mediaexport::kDisableSrgbConversion, false))
        _profile = colorprofiles::Get(colorprofiles::kSrgb);

    TRY(OpenImageRows(rowFormat, _profile));
    if (_hasAlpha)
        TRY(OpenAlphaRows(PixelFormats::Get(pixelformats::kAlphaU8)));
    return {};
}

Result<void> BmpExporter::WriteFile(const OutputStreamRef& output) {
    output->Expect(kFileHeaderSize + _headerSize + GetProfileBytes() + GetPixelBytes());
    EndianWriter out;
    out.Attach(output, BYTEORDER::LITTLE);
    TRY(WriteHeaders(out));
    return WriteRows(output);
}

Result<void> BmpExporter::WriteHeaders(EndianWriter& out) const {
    const Int headers = kFileHeaderSize + _headerSize + GetProfileBytes();
    TRY(out.WriteU16(kMagic));
    TRY(out.WriteU32(uint32_t(headers + GetPixelBytes())));
    TRY(out.WriteU32(0));  // reserved
    TRY(out.WriteU32(uint32_t(headers)));
    TRY(WriteInfoHeader(out));
    if (_headerSize >= kV4Size)
        TRY(WriteColorFields(out));
    return {};
}

Result<void> BmpExporter::WriteInfoHeader(EndianWriter& out) const {
    const Picture& picture = GetPicture();
    TRY(out.WriteU32(_headerSize));
    TRY(out.WriteS32(int32_t(picture.width)));
    TRY(out.WriteS32(int32_t(picture.height)));
    TRY(out.WriteU16(1));  // planes
    TRY(out.WriteU16(uint16_t(GetBitCount())));
    TRY(out.WriteU32(uint32_t(_hasAlpha ? Compression::BitFields : Compression::Rgb)));
    TRY(out.WriteU32(uint32_t(GetPixelBytes())));
    TRY(out.WriteS32(ToPixelsPerMetre(picture.dpi)));
    TRY(out.WriteS32(ToPixelsPerMetre(picture.dpi * picture.aspectRatio)));
    TRY(out.WriteU32(0));  // colours used
    TRY(out.WriteU32(0));  // colours important
    return {};
}

/// The fields of "V4" and "V5" beyond the 40 bytes. A 32-bit file always has one of these headers, hence the masks.
Result<void> BmpExporter::WriteColorFields(EndianWriter& out) const {
    TRY(out.WriteU32(kRedMask));
    TRY(out.WriteU32(kGreenMask));
    TRY(out.WriteU32(kBlueMask));
    TRY(out.WriteU32(_hasAlpha ? kAlphaMask : 0));
    TRY(out.WriteU32(_headerSize == kV5Size ? kSpaceEmbedded : kSpaceSrgb));
    TRY(out.WriteZeros(kEndpointsSize));
    TRY(out.WriteZeros(12));  // gamma of red, green, blue
    if (_headerSize < kV5Size)
        return {};
    TRY(out.WriteU32(kIntentImages));
    TRY(out.WriteU32(_headerSize));  // the profile follows the header
    TRY(out.WriteU32(uint32_t(GetProfileBytes())));
    TRY(out.WriteU32(0));  // reserved
    return out.WriteBlock(_profileBytes);
}

/// Writes bottom-up, as many rows at a time as a small buffer holds.
Result<void> BmpExporter::WriteRows(const OutputStreamRef& output) const {
    constexpr Int kBufferBytes = Int(64) * 1024;  // small enough to stay in cache
    const Int height = _image->GetHeight();
    const Int rowsAtOnce = std::clamp(kBufferBytes / _rowBytes, Int(1), height);
    CodecBuffer buffer;
    TRY(buffer.AllocateZeroed(rowsAtOnce * _rowBytes));  // row padding stays 0
    for (Int y = height; y > 0;) {
        const Int rows = std::min(rowsAtOnce, y);
        for (Int i = 0; i < rows; ++i)
            TRY(ReadRowWithAlpha(--y, buffer.GetFirst() + i * _rowBytes));
        TRY(output->Write(buffer.ToBlock().first(size_t(rows * _rowBytes))));
    }
    return {};
}

}  // namespace

Result<ObjectRef> MakeBmpExporter() { return ObjectRef(TRY(NewObj<BmpExporter>())); }

}  // namespace orvik
