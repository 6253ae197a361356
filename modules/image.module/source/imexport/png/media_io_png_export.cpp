#include <array>

#include "imexport/png/media_io_png.h"
#include "imexport/png/media_io_png_library.h"

namespace orvik {

using namespace png;

namespace {

constexpr size_t kMaxKeyword = 79;

/// A valid profile name: 1 to 79 printable Latin-1 characters without leading, trailing or consecutive spaces.
Result<std::array<char, kMaxKeyword + 1>> MakeProfileName(const String& description) {
    const std::string text = TRY(description.ToLatin1());
    std::array<char, kMaxKeyword + 1> name{};
    size_t length = 0;
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        const bool isPrintable = (code > 32 && code < 127) || code > 160;
        if (isPrintable)
            name[length++] = c;
        else if (length > 0 && name[length - 1] != ' ')
            name[length++] = ' ';
        if (length == kMaxKeyword)
            break;
    }
    if (length > 0 && name[length - 1] == ' ')
        name[length - 1] = 0;
    return name[0] ? name : std::array<char, kMaxKeyword + 1>{'I', 'C', 'C'};
}

/// Writes grey or RGB in 8 or 16 bits, with any alpha.
class PngExporter : public ImageExporter {
public:
    PngExporter() : ImageExporter(kFormat) {}

protected:
    Result<void> CheckInputCount(size_t count) const override;
    Result<void> OpenRows() override;
    Result<void> WriteFile(const OutputStreamRef& output) override;

private:
    Result<void> WriteHeader(PngLibrary& library) const;
    Result<void> WriteRows(PngLibrary& library);

    int GetColorType() const {
        return (_isGrey ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB) | (_hasAlpha ? PNG_COLOR_MASK_ALPHA : 0);
    }

    bool _isGrey = false;
    bool _hasAlpha = false;
    int _bitDepth = 8;
    bool _interlaced = false;
    ColorProfile _profile;
};

Result<void> PngExporter::CheckInputCount(size_t count) const {
    if (count > 1)
        return FunctionNotImplementedError();
    return ImageExporter::CheckInputCount(count);
}

Result<void> PngExporter::OpenRows() {
    const Picture& picture = GetPicture();
    _interlaced = picture.settings.Get(mediaexport::kPngInterlaced, false);
    _hasAlpha = picture.HasAlpha();
    _isGrey = picture.pixelFormat->GetColorSpace() == colorspaces::Get(colorspaces::kGrey);
    const Int channelCount = std::max(picture.pixelFormat->GetChannelCount(), Int(1));
    _bitDepth = picture.pixelFormat->GetBitsPerPixel().GetBits() / channelCount <= 8 ? 8 : 16;

    const ComponentType component = _bitDepth == 8 ? ComponentType::U8 : ComponentType::U16;
    BaseArray<ImageChannel> channels;
    const auto add = [&](const Id& type) { return channels.Append(channeltypes::GetChannel(type, component)); };
    if (_isGrey) {
        TRY(add(channeltypes::kGrey));
    } else {
        TRY(add(channeltypes::kRed));
        TRY(add(channeltypes::kGreen));
        TRY(add(channeltypes::kBlue));
    }
    if (_hasAlpha)
        TRY(add(channeltypes::kAlpha));
    const PixelFormat rowFormat = TRY(PixelFormats::FindOrCreatePixelFormat(channels.ToBlock()));

    _profile = ChooseProfile(rowFormat);
    TRY(OpenImageRows(rowFormat, _profile));
    return OpenAlphaRows(PixelFormats::Get(_bitDepth == 8 ? pixelformats::kAlphaU8 : pixelformats::kAlphaU16));
}

Result<void> PngExporter::WriteFile(const OutputStreamRef& output) {
    PngLibrary library;
    TRY(library.OpenForWriting(output));
    TRY(WriteHeader(library));
    TRY(WriteRows(library));
    TRY(library.Call([](png_structp png, png_infop info) { png_write_end(png, info); }));
    if (library.RanShortOfMemory())
        return OutOfMemoryError();
    return {};
}

Result<void> PngExporter::WriteHeader(PngLibrary& library) const {
    const Picture& picture = GetPicture();
    const auto width = static_cast<png_uint_32>(picture.width), height = static_cast<png_uint_32>(picture.height);
    const int bitDepth = _bitDepth, colorType = GetColorType();
    const int interlace = _interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE;
    TRY(library.Call([=](png_structp png, png_infop info) {
        png_set_IHDR(png, info, width, height, bitDepth, colorType, interlace, PNG_COMPRESSION_TYPE_BASE,
                     PNG_FILTER_TYPE_BASE);
    }));

    if (_profile.HasProfile()) {
        if (const Result<String> description = _profile.GetInfo(COLORPROFILEINFO::DESCRIPTION)) {
            const std::array<char, kMaxKeyword + 1> name = TRY(MakeProfileName(*description));
            const Block<const std::byte> bytes = TRY(_profile.WriteProfileToMemory());
            const char* nameText = name.data();
            TRY(library.Call([=](png_structp png, png_infop info) {
                png_set_iCCP(png, info, nameText, PNG_COMPRESSION_TYPE_BASE,
                             reinterpret_cast<png_const_bytep>(bytes.data()), static_cast<png_uint_32>(bytes.size()));
            }));
        }
    }

    const auto x = static_cast<png_uint_32>(ToResolution(picture.dpi * 100 / 2.54));
    const auto y = static_cast<png_uint_32>(ToResolution(picture.aspectRatio * picture.dpi * 100 / 2.54));
    return library.Call([=](png_structp png, png_infop info) {
        png_set_pHYs(png, info, x, y, PNG_RESOLUTION_METER);
        png_write_info(png, info);
        png_set_swap(png);
    });
}

/// The source is read once per pass.
Result<void> PngExporter::WriteRows(PngLibrary& library) {
    int passes = 1;
    if (_interlaced)
        TRY(library.Call([&passes](png_structp png, png_infop) { passes = png_set_interlace_handling(png); }));
    for (int pass = 0; pass < passes; ++pass) {
        for (Int y = 0; y < _image->GetHeight(); ++y) {
            const auto* row = reinterpret_cast<png_const_bytep>(TRY(GetRowWithAlpha(y)));
            TRY(library.Call([row](png_structp png, png_infop) { png_write_row(png, row); }));
        }
    }
    return {};
}

}  // namespace

Result<ObjectRef> MakePngExporter() { return ObjectRef(TRY(NewObj<PngExporter>())); }

}  // namespace orvik
