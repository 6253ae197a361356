#include "imexport/png/media_io_png.h"

#include "imexport/frame/media_io_palette.h"
#include "imexport/png/media_io_png_library.h"

namespace orvik {

using namespace png;

namespace {

/// The image stream of a PNG file; a separate class lets clients recognise it.
class MediaStreamImageDataImportPng : public MediaStreamImageDataImportImpl {};

/// The header as libpng reports it before the pixels. The library owns what the pointers point to.
struct PngHeader {
    png_uint_32 width = 0, height = 0;
    int bitDepth = 0, colorType = 0, interlace = 0;
    bool isValid = false;
    const png_color* palette = nullptr;
    int paletteSize = 0;
    bool hasTransparency = false, transparencyIsValid = false;
    const png_byte* alphas = nullptr;  ///< of the first palette entries
    int alphaCount = 0;
    png_color_16 colorKey{};  ///< the one transparent colour of grey and RGB files
    const std::byte* profile = nullptr;
    png_uint_32 profileLength = 0;
    png_uint_32 xPixelsPerInch = 0, yPixelsPerInch = 0;
};

void ReadPngHeader(png_structp png, png_infop info, PngHeader* header) {
    png_read_info(png, info);
    png_set_swap(png);  // 16-bit samples in machine byte order
    header->isValid = png_get_IHDR(png, info, &header->width, &header->height, &header->bitDepth, &header->colorType,
                                   &header->interlace, nullptr, nullptr) != 0;
    header->hasTransparency = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
    if (header->hasTransparency) {
        png_bytep alphas = nullptr;
        png_color_16p color = nullptr;
        header->transparencyIsValid = png_get_tRNS(png, info, &alphas, &header->alphaCount, &color) != 0;
        header->alphas = alphas;
        if (color)
            header->colorKey = *color;
    }
    png_colorp palette = nullptr;
    if (png_get_PLTE(png, info, &palette, &header->paletteSize) != 0)
        header->palette = palette;
    png_charp name = nullptr;
    int compression = 0;
    png_bytep profile = nullptr;
    if (png_get_iCCP(png, info, &name, &compression, &profile, &header->profileLength) != 0)
        header->profile = reinterpret_cast<const std::byte*>(profile);
    header->xPixelsPerInch = png_get_x_pixels_per_inch(png, info);
    header->yPixelsPerInch = png_get_y_pixels_per_inch(png, info);
}

/// Stored and presented pixel format of a colour type and depth. With a colour key, pixels gain an alpha. Indices are
/// presented with their palette, which may have alphas.
struct PngPixels {
    int colorType;
    int bitDepth;
    Id stored;
    Id withColorKey;
};
constexpr Int kMaxColors = 256;  ///< of a palette
constexpr PngPixels kPixels[] = {
    {PNG_COLOR_TYPE_GRAY, 1, pixelformats::kIndexedU1, pixelformats::kIndexedU1},
    {PNG_COLOR_TYPE_GRAY, 2, pixelformats::kIndexedU2, pixelformats::kIndexedU2},
    {PNG_COLOR_TYPE_GRAY, 4, pixelformats::kIndexedU4, pixelformats::kIndexedU4},
    {PNG_COLOR_TYPE_GRAY, 8, pixelformats::kGreyU8, pixelformats::kGreyaU8},
    {PNG_COLOR_TYPE_GRAY, 16, pixelformats::kGreyU16, pixelformats::kGreyaU16},
    {PNG_COLOR_TYPE_RGB, 8, pixelformats::kRgbU8, pixelformats::kRgbaU8},
    {PNG_COLOR_TYPE_RGB, 16, pixelformats::kRgbU16, pixelformats::kRgbaU16},
    {PNG_COLOR_TYPE_PALETTE, 1, pixelformats::kIndexedU1, pixelformats::kIndexedU1},
    {PNG_COLOR_TYPE_PALETTE, 2, pixelformats::kIndexedU2, pixelformats::kIndexedU2},
    {PNG_COLOR_TYPE_PALETTE, 4, pixelformats::kIndexedU4, pixelformats::kIndexedU4},
    {PNG_COLOR_TYPE_PALETTE, 8, pixelformats::kIndexedU8, pixelformats::kIndexedU8},
    {PNG_COLOR_TYPE_GRAY_ALPHA, 8, pixelformats::kGreyaU8, pixelformats::kGreyaU8},
    {PNG_COLOR_TYPE_GRAY_ALPHA, 16, pixelformats::kGreyaU16, pixelformats::kGreyaU16},
    {PNG_COLOR_TYPE_RGB_ALPHA, 8, pixelformats::kRgbaU8, pixelformats::kRgbaU8},
    {PNG_COLOR_TYPE_RGB_ALPHA, 16, pixelformats::kRgbaU16, pixelformats::kRgbaU16},
};

/// Makes pixels transparent whose colour equals all 16 bits of the key in the file, even for 8-bit samples.
template <class T, int ColorCount>
void ApplyColorKey(std::byte* line, Int width, const std::array<uint16_t, ColorCount>& key) {
    for (T* pixel = reinterpret_cast<T*>(line); width > 0; --width, pixel += ColorCount + 1) {
        if (std::equal(key.begin(), key.end(), pixel))
            pixel[ColorCount] = 0;
    }
}

class PngImporter : public ImageImporter {
public:
    PngImporter() : ImageImporter(kFormat, "PNG image") {}

protected:
    bool CanAnalyzeAgain() const override { return false; }
    Result<void> Prepare() override { return {}; }  // the job is added with the first row
    void ResetHeader() override;
    Result<void> ReadHeader(const InputStreamRef& stream) override;
    Result<void> DecodePixels(const InputStreamRef& stream) override;

private:
    Result<void> ChoosePixelFormats();
    Result<PixelFormat> MakeGreyPalette() const;
    Result<PixelFormat> MakeColorPalette() const;
    Result<void> CheckSize(const InputStreamRef& stream) const;
    Result<void> AddPicture();
    Result<void> PrepareConversion();
    Result<void> DecodeRows(RowSink& sink);
    Result<void> DecodeInterlaced(const InputStreamRef& stream, RowSink& sink, int passes);
    Result<void> ReadRow(std::byte* row);
    Result<void> PresentRow(const std::byte* stored, std::byte* presented) const;

    Int GetStoredRowBytes() const { return _stored->GetBytesPerLine(_header.width); }

    PngLibrary _library;
    PngHeader _header;
    PixelFormat _stored;
    PixelFormat _presented;
    ConvertPixelFunc _present;  ///< from stored to presented; empty when they are the same
    ImageImportStreamRef _stream;
};

void PngImporter::ResetHeader() {
    _library.Close();
    _header = {};
    _stored = nullptr;
    _presented = nullptr;
    _present = nullptr;
    _stream = nullptr;
}

Result<void> PngImporter::ReadHeader(const InputStreamRef& stream) {
    TRY(_library.OpenForReading(stream));
    PngHeader* header = &_header;
    TRY(_library.Call([header](png_structp png, png_infop info) { ReadPngHeader(png, info, header); }));
    if (_library.RanShortOfMemory())
        return OutOfMemoryError();  // the library drops ancillary data and continues
    if (!_header.isValid)
        return IllegalStateError();
    if (_header.hasTransparency && !_header.transparencyIsValid)
        return MediaSessionWrongTypeError("png_get_tRNS error.");
    TRY(ChoosePixelFormats());
    TRY(CheckSize(stream));
    return AddPicture();
}

Result<void> PngImporter::ChoosePixelFormats() {
    const auto* pixels = std::find_if(std::begin(kPixels), std::end(kPixels), [this](const PngPixels& row) {
        return row.colorType == _header.colorType && row.bitDepth == _header.bitDepth;
    });
    if (pixels == std::end(kPixels))
        return MediaSessionWrongTypeError("Unsupported PNG color type: @ and bitdepth: @.", _header.colorType,
                                          _header.bitDepth);
    if (_header.colorType == PNG_COLOR_TYPE_PALETTE) {
        _stored = _presented = TRY(MakeColorPalette());
    } else if (_header.bitDepth < 8) {
        _stored = _presented = TRY(MakeGreyPalette());
    } else {
        _stored = PixelFormats::Get(pixels->stored);
        _presented = PixelFormats::Get(_header.hasTransparency ? pixels->withColorKey : pixels->stored);
    }
    return {};
}

/// The palette of colour type 3. Colours beyond the given alphas are opaque.
Result<PixelFormat> PngImporter::MakeColorPalette() const {
    const Int count = _header.paletteSize;
    if (!_header.palette || count < 1 || count > kMaxColors)
        return MediaSessionWrongTypeError("png_get_PLTE error.");
    const Int bytes = _header.hasTransparency ? 4 : 3;
    std::byte colors[kMaxColors * 4];
    for (Int i = 0; i < count; ++i) {
        const png_color& color = _header.palette[i];
        std::byte* entry = &colors[i * bytes];
        entry[0] = std::byte(color.red);
        entry[1] = std::byte(color.green);
        entry[2] = std::byte(color.blue);
        if (_header.hasTransparency)
            entry[3] = i < _header.alphaCount ? std::byte(_header.alphas[i]) : std::byte(255);
    }
    return MakePaletteFormat(_header.bitDepth,
                             PixelFormats::Get(_header.hasTransparency ? pixelformats::kRgbaU8 : pixelformats::kRgbU8),
                             {colors, size_t(count * bytes)});
}

/// Grey of fewer than 8 bits: the levels as a palette. A colour key makes one of them transparent.
Result<PixelFormat> PngImporter::MakeGreyPalette() const {
    const Int count = Int(1) << _header.bitDepth;
    const Int bytes = _header.hasTransparency ? 2 : 1;
    std::byte levels[16 * 2];  // of up to 4 bits
    for (Int value = 0; value < count; ++value) {
        levels[value * bytes] = std::byte(value * 255 / (count - 1));
        if (_header.hasTransparency)
            levels[value * bytes + 1] = std::byte(value == _header.colorKey.gray ? 0 : 255);
    }
    return MakePaletteFormat(
        _header.bitDepth, PixelFormats::Get(_header.hasTransparency ? pixelformats::kGreyaU8 : pixelformats::kGreyU8),
        {levels, size_t(count * bytes)});
}

/// Checks that the compressed data can hold the picture before memory is allocated for it.
Result<void> PngImporter::CheckSize(const InputStreamRef& stream) const {
    const Int bits = TRY(MultiplySizes({_header.width, _stored->GetBitsPerPixel().GetBits(), _header.height}));
    return RequireContent(stream, bits / 8, kDeflateExpansion);
}

Result<void> PngImporter::AddPicture() {
    StreamDescription description;
    description.type = MEDIAFORMATTYPE::IMAGE;
    description.pixelFormat = _presented;
    description.colorProfile = colorprofiles::Get(colorprofiles::kSrgb);
    if (_header.profile)
        description.colorProfile =
            TRY(ColorProfile::OpenProfileFromMemory(Block<const std::byte>(_header.profile, _header.profileLength)));
    description.width = _header.width;
    description.height = _header.height;
    MediaStreamFormat format = TRY(DescribeStream(description));

    Float aspectRatio = 1.0;
    if (_header.xPixelsPerInch != 0) {
        aspectRatio = Float(_header.yPixelsPerInch) / Float(_header.xPixelsPerInch);
        TRY(format.Set(mediaformat::kDpi, Float(_header.xPixelsPerInch)));
    }
    if (aspectRatio != 0.0)
        TRY(format.Set(mediaformat::kAspectRatio, aspectRatio));

    _stream = TRY(AddImageStream(format, nullptr, kStreamClass));
    return {};
}

Result<void> PngImporter::DecodePixels(const InputStreamRef& stream) {
    TRY(AddPictureJob(_header.width, _header.height));
    const RowSinkRef sink = TRY(OpenSink(_stream, _presented));
    TRY(PrepareConversion());
    int passes = 1;
    TRY(_library.Call([&passes](png_structp png, png_infop) { passes = png_set_interlace_handling(png); }));
    return passes == 1 ? DecodeRows(*sink) : DecodeInterlaced(stream, *sink, passes);
}

Result<void> PngImporter::PrepareConversion() {
    if (_presented == _stored)
        return {};
    bool convertsProfile = false;
    _present =
        TRY(_presented->GetConvertPixelFunc(_stored, _stored->GetChannelOffsets(), _presented->GetChannelOffsets(),
                                            nullptr, nullptr, CONVERTPIXELFLAGS::NONE, convertsProfile));
    return {};
}

Result<void> PngImporter::ReadRow(std::byte* row) {
    const auto to = reinterpret_cast<png_bytep>(row);
    return _library.Call([to](png_structp png, png_infop) { png_read_row(png, to, nullptr); });
}

Result<void> PngImporter::DecodeRows(RowSink& sink) {
    CodecBuffer stored;
    if (_present)
        TRY(stored.Allocate(GetStoredRowBytes()));
    for (Int y = 0; y < Int(_header.height); ++y) {
        std::byte* const row = TRY(sink.BeginRow(y));
        TRY(ReadRow(_present ? stored.GetFirst() : row));
        if (_present)
            TRY(PresentRow(stored.GetFirst(), row));
        TRY(sink.EndRow());
    }
    return {};
}

/// Each pass fills in some pixels of its rows: in the picture itself if it stores rows as the file does, otherwise in a
/// buffer for all rows.
Result<void> PngImporter::DecodeInterlaced(const InputStreamRef& stream, RowSink& sink, int passes) {
    const Int rowBytes = GetStoredRowBytes(), height = _header.height;
    const bool isInPlace = !_present && sink.Locate(0);
    CodecBuffer rows;
    if (!isInPlace) {
        const Int bytes = TRY(MultiplySizes({rowBytes, height}));
        TRY(rows.AllocateFromFile(bytes, stream, kDeflateExpansion));
    }
    for (int pass = 0; pass < passes; ++pass) {
        for (Int y = 0; y < height; ++y) {
            TRY(ReportJob(Float(pass * height + y) / Float(passes * height)));
            TRY(ReadRow(isInPlace ? sink.Locate(y) : rows.GetFirst() + y * rowBytes));
        }
    }
    for (Int y = 0; y < height && !isInPlace; ++y) {
        const std::byte* const stored = rows.GetFirst() + y * rowBytes;
        std::byte* const row = TRY(sink.BeginRow(y));
        if (_present)
            TRY(PresentRow(stored, row));
        else
            std::memcpy(row, stored, size_t(rowBytes));
        TRY(sink.EndRow());
    }
    return {};
}

/// Adds the colour key's alpha to a row of the file.
Result<void> PngImporter::PresentRow(const std::byte* stored, std::byte* presented) const {
    const Int width = _header.width;
    TRY(_present({presented, _presented->GetBitsPerPixel()}, width, {stored, _stored->GetBitsPerPixel()},
                 CONVERTPIXELFLAGS::NONE));
    const png_color_16& key = _header.colorKey;
    const bool isWide = _header.bitDepth == 16;
    if (_header.colorType == PNG_COLOR_TYPE_GRAY) {
        if (isWide)
            ApplyColorKey<uint16_t, 1>(presented, width, {key.gray});
        else
            ApplyColorKey<uint8_t, 1>(presented, width, {key.gray});
    } else {
        if (isWide)
            ApplyColorKey<uint16_t, 3>(presented, width, {key.red, key.green, key.blue});
        else
            ApplyColorKey<uint8_t, 3>(presented, width, {key.red, key.green, key.blue});
    }
    return {};
}

}  // namespace

Result<Bool> DetectPng(const Url&, const InputStreamRef& stream) { return StartsWith(stream, kSignature); }

Result<ObjectRef> MakePngImporter() { return ObjectRef(TRY(NewObj<PngImporter>())); }

Result<void> PublishPngParts(Publisher& publisher) {
    TRY(publisher.PublishClass<MediaStreamImageDataImportPng>(kStreamClass));
    const Ref<DataDictionaryObjectInterface> library = TRY(NewObj<DataDictionaryObjectInterface>());
    TRY(library->Set(moduleinfo::kName, "libpng"));
    TRY(library->Set(moduleinfo::kDescription, "PNG image i/o library"));
    TRY(library->Set(moduleinfo::kVersion, "1.6.36"));
    return publisher.PublishObject(kModuleInfo, ObjectRef(library));
}

}  // namespace orvik
