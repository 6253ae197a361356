#include "imexport/frame/media_io_exporter.h"

namespace orvik {
namespace {

/// Indices have the alpha of their colours.
bool HasAlpha(const PixelFormat& format) {
    const auto indexed = Cast<PixelFormatIndexedColorInterface>(format);
    const PixelFormat colors = indexed ? indexed->GetColorTablePixelFormat() : PixelFormat();
    return format->HasAlpha() || (colors && colors->HasAlpha());
}

}  // namespace

FileFormat ImageExporter::GetFileFormat() const {
    return Registry::Find<FileFormatInterface>(kFileFormatRegistry, _entry ? _entry->format : Id());
}

Result<Data> ImageExporter::GetData(const Id& id) const {
    using namespace mediacapability;
    if (!_entry)
        return MediaConverterBaseImpl::GetData(id);
    const ExportCapabilities& can = _entry->output;
    if (id == kOutputSupportsImage.GetId())
        return Data(Bool(can.image));
    if (id == kOutputSupportsVideo.GetId())
        return Data(Bool(can.video));
    if (id == kOutputSupportsAudio.GetId())
        return Data(Bool(can.audio));
    if (id == kOutputEmbedColorProfile.GetId())
        return Data(Bool(can.embedColorProfile));
    if (id == kOutputMaximalAlphaChannels.GetId())
        return Data(can.maximalAlphaChannels);
    if (id == kOutputMaximalImageResolution.GetId())
        return Data(can.maximalImageResolution);
    if (id == kOutputMaximalLayerResolution.GetId())
        return Data(can.maximalLayerResolution);
    if (id == kOutputBitDepthsImage.GetId())
        return Data(can.bitDepthsImage);
    if (id == kOutputBitDepthsLayer.GetId())
        return Data(can.bitDepthsLayer);
    return MediaConverterBaseImpl::GetData(id);
}

Result<void> ImageExporter::CheckInputCount(size_t count) const {
    if (count != 1)
        return IllegalStateError();
    return {};
}

Result<void> ImageExporter::ResetConverter() {
    ForgetStreams();
    ResetOutputStreams();
    _analyzed = false;
    return {};
}

void ImageExporter::ForgetStreams() {
    _imageStream = nullptr;
    _alphaStream = nullptr;
    _picture = {};
    _prepared = false;
}

Result<void> ImageExporter::Analyze(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) {
    if (_analyzed)
        return {};
    _analyzed = true;
    TRY(CheckInputCount(inputs.size()));
    TRY(AnalyzeInput(inputs, targetTime, flags));
    Result<void> found = FindPicture(inputs[0]);
    if (!found)
        ForgetStreams();  // what cannot be written must not reach the later phases
    return found;
}

Result<void> ImageExporter::FindPicture(const MediaConverterRef& input) {
    TRY(FindStreams(input));
    TRY(DescribePicture());
    if (!KeepsAlpha())
        _alphaStream = nullptr;
    if (_alphaStream)
        TRY(_alphaStream->SubscribeStream(_alphaStream->GetSelectedFormat()));
    _picture.hasAlphaStream = bool(_alphaStream);
    const Int limit = TRY(Get(mediacapability::kOutputMaximalImageResolution));
    if (_picture.width <= 0 || _picture.height <= 0)
        return IllegalArgumentError("resolution must not be 0.");
    if (std::max(_picture.width, _picture.height) > limit)
        return IllegalArgumentError("Maximum resolution exceeded.");
    return {};
}

/// The first image, and the first alpha that hangs below it. Alphas of other images are not this file's.
Result<void> ImageExporter::FindStreams(const MediaConverterRef& input) {
    const BaseArray<MediaStreamRef> streams = TRY(input->GetOutputStreams(true));
    for (const MediaStreamRef& stream : streams) {
        const auto exported = Cast<MediaStreamImageDataExportInterface>(stream);
        if (!exported)
            continue;
        const MediaStreamFormat format = exported->GetFormat(exported->GetSelectedFormat());
        const MEDIAFORMATTYPE type = TRY(format.Get(mediaformat::kType));
        if (type == MEDIAFORMATTYPE::IMAGE && !_imageStream) {
            TRY(exported->SubscribeStream(exported->GetSelectedFormat()));
            _imageStream = exported;
            _picture.format = format;
            _picture.pixelFormat = TRY(format.Get(mediaformat::kPixelFormat));
            _picture.hasOwnAlpha = HasAlpha(_picture.pixelFormat);
        } else if (type == MEDIAFORMATTYPE::ALPHA && _imageStream && !_alphaStream && !_picture.hasOwnAlpha &&
                   exported->GetParent() == HierarchyObjectRef(_imageStream)) {
            _alphaStream = exported;
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
    return {};
}

Result<void> ImageExporter::PrepareExecute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) {
    TRY(CheckInputCount(inputs.size()));
    if (!_imageStream)
        return IllegalStateError();
    TRY(PrepareExecuteInput(inputs, targetTime, flags));
    _prepared = true;
    return {};
}

Result<void> ImageExporter::Execute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) {
    TRY(CheckInputCount(inputs.size()));
    if (!_prepared)
        return IllegalStateError();
    TRY(ExecuteInput(inputs, targetTime, flags));
    Result<void> first = OpenRows();
    if (first)
        first = WriteToUrl();
    for (RowSource* source : {&_image, &_alpha}) {
        Result<void> finished = FinishSource(*source);  // owed after InitStream, also when writing failed
        if (first)
            first = std::move(finished);
    }
    return first;
}

Result<void> ImageExporter::WriteToUrl() {
    const OutputStreamRef output = TRY(GetOutputUrl().OpenOutputStream());
    Result<void> written = WriteFile(output);
    Result<void> closed = output->Close();
    return written ? std::move(closed) : std::move(written);
}

Result<void> ImageExporter::Close(Inputs inputs) {
    ForgetStreams();
    return CloseInputs(inputs);
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
    return OpenSource(_image, _imageStream, rowFormat, profile);
}

Result<void> ImageExporter::OpenAlphaRows(const PixelFormat& rowFormat) {
    return _alphaStream ? OpenSource(_alpha, _alphaStream, rowFormat, ColorProfile()) : Result<void>();
}

Result<void> ImageExporter::OpenSource(RowSource& source, const ImageExportStreamRef& stream, const PixelFormat& format,
                                       const ColorProfile& profile) {
    source._properties = TRY(MediaStreamProperties::FromStream(stream));
    source._stream = stream;  // from here on FinishStream is owed
    TRY(stream->InitStream(source._properties));
    const GETPIXELHANDLERFLAGS flags =
        profile.HasProfile() ? GETPIXELHANDLERFLAGS::FORCECOLORPROFILECONVERSION : GETPIXELHANDLERFLAGS::NONE;
    source._handler = TRY(stream->GetPixelStream(source._properties, format, profile, flags));
    if (!source._handler)
        return IllegalStateError();
    return {};
}

Result<void> ImageExporter::FinishSource(RowSource& source) {
    RowSource gone = std::exchange(source, RowSource());
    gone._handler.Free();
    return gone._stream ? gone._stream->FinishStream(gone._properties) : Result<void>();
}

int32_t ImageExporter::ToResolution(Float value) {
    constexpr Float kLargest = 0x7FFFFFFF;
    if (!(value > 0))
        return 0;
    return static_cast<int32_t>(std::min(value, kLargest));
}

}  // namespace orvik
