#include "imexport/frame/media_io_imageexporter.h"

namespace orvik {
namespace {

/// An indexed format has alpha if its palette has.
Bool HasAlpha(const PixelFormat& format) {
    const auto indexed = Cast<PixelFormatIndexedColorInterface>(format);
    const PixelFormat colors = indexed ? indexed->GetColorTablePixelFormat() : PixelFormat();
    return format->HasAlpha() || (colors && colors->HasAlpha());
}

}  // namespace

Result<void> ImageExporter::ChooseStreams(Block<const OfferedStream> streams) {
    TRY(FindPicture(streams));
    TRY(DescribePicture());
    if (!KeepsAlpha())
        _alphaStream = nullptr;
    if (_alphaStream)
        TRY(Subscribe(_alphaStream));
    _picture.hasAlphaStream = bool(_alphaStream);
    const Int limit = TRY(Get(mediacapability::kOutputMaximalImageResolution));
    if (_picture.width <= 0 || _picture.height <= 0)
        return IllegalArgumentError("resolution must not be 0.");
    if (std::max(_picture.width, _picture.height) > limit)
        return IllegalArgumentError("Maximum resolution exceeded.");
    return {};
}

/// Alphas of other images do not belong to this file.
Result<void> ImageExporter::FindPicture(Block<const OfferedStream> streams) {
    Int imageIndex = -1;
    for (Int i = 0; i < Int(streams.size()); ++i) {
        const OfferedStream& offered = streams[size_t(i)];
        if (!offered.image)
            continue;
        if (offered.type == MEDIAFORMATTYPE::IMAGE && !_imageStream) {
            TRY(Subscribe(offered.stream));
            imageIndex = i;
            _imageStream = offered.image;
            _picture.format = offered.format;
            _picture.pixelFormat = TRY(offered.format.Get(mediaformat::kPixelFormat));
            _picture.hasOwnAlpha = HasAlpha(_picture.pixelFormat);
        } else if (offered.type == MEDIAFORMATTYPE::ALPHA && _imageStream && !_alphaStream && !_picture.hasOwnAlpha &&
                   offered.parent == imageIndex) {
            _alphaStream = offered.image;
        }
    }
    if (!_imageStream)
        return MediaSessionWrongTypeError("no image stream(s) found.");
    return {};
}

Result<void> ImageExporter::DescribePicture() {
    const MediaStreamFormat& format = _picture.format;
    _picture.width = TRY(format.Get(mediaformat::kWidth));
    _picture.height = TRY(format.Get(mediaformat::kHeight));
    _picture.settings = format.Get(mediaformat::kExportSettings, DataDictionary());
    constexpr Float kDefaultDpi = 72.0;
    const Float dpi = format.Get(mediaformat::kDpi, kDefaultDpi);
    _picture.dpi = dpi == 0.0 ? kDefaultDpi : dpi;
    const Float aspectRatio = format.Get(mediaformat::kAspectRatio, 1.0);
    _picture.aspectRatio = aspectRatio == 0.0 ? 1.0 : aspectRatio;
    return {};
}

void ImageExporter::ForgetStreams() {
    _imageStream = nullptr;
    _alphaStream = nullptr;
    _image = nullptr;
    _alpha = nullptr;
    _picture = {};
    _rowWithAlpha.Release();
}

ColorProfile ImageExporter::ChooseProfile(const PixelFormat& rowFormat) const {
    ColorProfile profile = _picture.format.Get(mediaformat::kColorProfile, ColorProfile());
    if (!profile.HasProfile())
        profile = _picture.pixelFormat->GetDefaultColorProfile();
    if (profile.HasProfile() && profile.GetColorSpace() == rowFormat->GetColorSpace())
        return profile;
    const bool isGrey = rowFormat->GetColorSpace() == colorspaces::Get(colorspaces::kGrey);
    return colorprofiles::Get(isGrey ? colorprofiles::kSgrey : colorprofiles::kSrgb);
}

Result<void> ImageExporter::OpenImageRows(const PixelFormat& rowFormat, const ColorProfile& profile) {
    _image = TRY(OpenSource(_imageStream, rowFormat, profile));
    return {};
}

Result<void> ImageExporter::OpenAlphaRows(const PixelFormat& rowFormat) {
    if (_alphaStream)
        _alpha = TRY(OpenSource(_alphaStream, rowFormat, ColorProfile()));
    return {};
}

Result<void> ImageExporter::ReadRowWithAlpha(Int y, std::byte* row) const {
    TRY(_image->ReadRow(y, row));
    if (!_alpha)
        return {};
    const BITS stride = _image->GetPixelFormat()->GetBitsPerPixel();
    const Int alphaBits = stride.GetBits() - _alpha->GetPixelFormat()->GetBitsPerPixel().GetBits();
    return _alpha->ReadRow(y, {row + alphaBits / 8, stride});
}

Result<const std::byte*> ImageExporter::GetRowWithAlpha(Int y) {
    if (!_alpha)
        return _image->GetRow(y);
    if (_rowWithAlpha.GetSize() != _image->GetRowBytes())
        TRY(_rowWithAlpha.Allocate(_image->GetRowBytes()));
    TRY(ReadRowWithAlpha(y, _rowWithAlpha.GetFirst()));
    return static_cast<const std::byte*>(_rowWithAlpha.GetFirst());
}

int32_t ImageExporter::ToResolution(Float value) {
    constexpr Float kLargest = 0x7FFFFFFF;
    if (!(value > 0))
        return 0;
    return static_cast<int32_t>(std::min(value, kLargest));
}

}  // namespace orvik
