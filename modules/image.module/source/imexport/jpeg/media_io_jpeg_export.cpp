#include <cmath>

#include "imexport/jpeg/media_io_jpeg.h"
#include "imexport/jpeg/media_io_jpeg_encoder.h"

namespace orvik {

using namespace jpeg;

namespace {

constexpr Float kDefaultQuality = 0.8;

/// Writes grey or RGB. Inks become RGB; alpha is left out.
class JpegExporter : public ImageExporter {
public:
    JpegExporter() : ImageExporter(kFormat) {}

protected:
    Result<void> CheckInputCount(size_t count) const override;
    Result<void> OpenRows() override;
    Result<void> WriteFile(const OutputStreamRef& output) override;

private:
    /// From a quality of 0 to 1 to the library's of 0 to 100.
    static int ToLibraryQuality(Float quality);

    JpegSettings _settings;
    ColorProfile _profile;
};

Result<void> JpegExporter::CheckInputCount(size_t count) const {
    if (count > 1)
        return FunctionNotImplementedError();
    return ImageExporter::CheckInputCount(count);
}

int JpegExporter::ToLibraryQuality(Float quality) {
    if (!(quality > 0))
        return 0;
    return static_cast<int>(std::floor(std::min(quality, 1.0) * 100 + 0.5));
}

Result<void> JpegExporter::OpenRows() {
    const Picture& picture = GetPicture();
    _settings.quality = ToLibraryQuality(picture.settings.Get(mediaexport::kQuality, kDefaultQuality));
    _settings.isBaseline = picture.settings.Get(mediaexport::kJpgBaseline, false);
    _settings.width = picture.width;
    _settings.height = picture.height;
    _settings.dotsPerInch =
        static_cast<uint16_t>(std::min<int32_t>(ToResolution(picture.dpi + 0.5), std::numeric_limits<uint16_t>::max()));
    _settings.isGrey = picture.pixelFormat->GetColorSpace() == colorspaces::Get(colorspaces::kGrey);

    const PixelFormat rowFormat = PixelFormats::Get(_settings.isGrey ? pixelformats::kGreyU8 : pixelformats::kRgbU8);
    _profile = ChooseProfile(rowFormat);
    return OpenImageRows(rowFormat, _profile);
}

Result<void> JpegExporter::WriteFile(const OutputStreamRef& output) {
    if (_profile.HasProfile())
        _settings.profile = TRY(_profile.WriteProfileToMemory());
    JpegEncoder encoder;
    TRY(encoder.Start(output, _settings));
    for (Int y = 0; y < _settings.height; ++y) {
        const std::byte* row = TRY(_image->GetRow(y));
        TRY(encoder.WriteRow(row));
    }
    return encoder.Finish();
}

}  // namespace

Result<ObjectRef> MakeJpegExporter() { return ObjectRef(TRY(NewObj<JpegExporter>())); }

}  // namespace orvik
