#include "imexport/frame/media_io_importer.h"

#include <limits>

namespace orvik {

void ImageImporter::SetSourceStream(const InputStreamRef& stream) {
    _stream = stream;
    _streamStart = stream ? stream->GetPosition() : 0;
    _ownsStream = false;
}

Result<Data> ImageImporter::GetData(const Id& id) const {
    if (_entry && id == mediacapability::kInputSupportsImage.GetId())
        return Data(Bool(_entry->input.image));
    if (_entry && id == mediacapability::kInputSupportsVideo.GetId())
        return Data(Bool(_entry->input.video));
    if (_entry && id == mediacapability::kInputSupportsAudio.GetId() && _entry->input.audio)
        return Data(true);
    return MediaConverterBaseImpl::GetData(id);
}

Result<void> ImageImporter::Analyze(Inputs inputs, TimeValue, MEDIASESSIONFLAGS) {
    TRY(RequireNoInputs(inputs));
    if (_analyzedOnce && !CanAnalyzeAgain())
        return IllegalStateError();
    _analyzedOnce = true;
    _phase = Phase::New;
    _executed = false;
    ResetOutputStreams();
    _imageStreams.Reset();
    ResetHeader();
    TRY(OpenSource());
    TRY(ReadHeader(_stream));
    _phase = Phase::Analyzed;
    return {};
}

Result<void> ImageImporter::OpenSource() {
    if (!_stream) {
        _stream = TRY(_url.OpenInputStream());
        _streamStart = 0;
        _ownsStream = true;
    }
    return _stream->Seek(_streamStart);
}

bool ImageImporter::IsAnySubscribed() const {
    return std::any_of(_imageStreams.begin(), _imageStreams.end(),
                       [](const ImageImportStreamRef& stream) { return stream->IsSubscribed(); });
}

Result<void> ImageImporter::PrepareExecute(Inputs inputs, TimeValue, MEDIASESSIONFLAGS) {
    TRY(RequireNoInputs(inputs));
    if (_phase == Phase::New)
        return IllegalStateError();
    if (IsAnySubscribed() && !HasJobPerPicture()) {
        const MediaStreamRef& first = _imageStreams[0];
        const MediaStreamFormat format = first->GetFormat(first->GetSelectedFormat());
        const Int width = TRY(format.Get(mediaformat::kWidth));
        const Int height = TRY(format.Get(mediaformat::kHeight));
        TRY(AddJob(width, height));
    }
    _phase = Phase::Prepared;
    return {};
}

Result<void> ImageImporter::Execute(Inputs inputs, TimeValue, MEDIASESSIONFLAGS) {
    TRY(RequireNoInputs(inputs));
    if (_executed)
        return MediaStreamEOFError();
    if (_phase != Phase::Prepared)
        return IllegalStateError();
    _executed = true;
    TRY(DeliverMetadata());
    if (!IsAnySubscribed())
        return {};
    _progress = GetSessionProgress();
    Result<void> decoded = DecodePixels(_stream);
    if (decoded)
        decoded = ReportProgress(1, 1);
    Result<void> finished = FinishSinks();  // owed after InitStream, also when decoding failed
    _progress = nullptr;
    return decoded ? std::move(finished) : std::move(decoded);
}

Result<void> ImageImporter::Close(Inputs inputs) {
    TRY(RequireNoInputs(inputs));
    _phase = Phase::New;
    _executed = false;
    ResetOutputStreams();
    _imageStreams.Reset();
    ResetHeader();
    const InputStreamRef stream = std::exchange(_stream, nullptr);
    return stream && _ownsStream ? stream->Close() : Result<void>();
}

Result<MediaStreamFormat> ImageImporter::DescribeStream(const StreamDescription& description) {
    MediaStreamFormat format;
    TRY(format.Set(mediaformat::kType, description.type));
    TRY(format.Set(mediaformat::kSubImageIndex, description.subImageIndex));
    TRY(format.Set(mediaformat::kPixelFormat, description.pixelFormat));
    if (description.colorProfile.HasProfile())
        TRY(format.Set(mediaformat::kColorProfile, description.colorProfile));
    TRY(format.Set(mediaformat::kWidth, description.width));
    TRY(format.Set(mediaformat::kHeight, description.height));
    return format;
}

Result<ImageImportStreamRef> ImageImporter::AddStream(const MediaStreamFormat& format, const MediaStreamRef& parent) {
    ImageImportStreamRef stream =
        TRY(ClassRef(mediaclasses::kStreamImport).Create<MediaStreamImageDataImportInterface>());
    TRY(AddStream(stream, format, parent));
    return stream;
}

Result<void> ImageImporter::AddStream(const ImageImportStreamRef& stream, const MediaStreamFormat& format,
                                      const MediaStreamRef& parent) {
    TRY(stream->AddFormat(Data(Int(0)), format));
    TRY(_imageStreams.Append(stream));
    if (parent)
        return parent->AddChild(MediaStreamInterface::kChildBranch, stream);
    return AddOutputStream(stream);
}

Result<RowSink*> ImageImporter::OpenSink(const ImageImportStreamRef& stream, const PixelFormat& pixelFormat) {
    if (_sinkCount == kMaxSinks)
        return UnexpectedError();
    RowSink& sink = _sinks[_sinkCount++];
    if (!stream || !stream->IsSubscribed())
        return &sink;

    // Pixels that can be stored but never shown would be found out too late.
    const PixelFormat shown = PixelFormats::Get(pixelformats::kRgbaU8);
    bool convertsProfile = false;
    TRY(shown->GetConvertPixelFunc(pixelFormat, pixelFormat->GetChannelOffsets(), shown->GetChannelOffsets(), nullptr,
                                   nullptr, CONVERTPIXELFLAGS::NONE, convertsProfile));

    sink._properties = TRY(MediaStreamProperties::FromStream(stream));
    TRY(sink._properties.Set(mediaformat::kPixelFormat, pixelFormat));
    sink._width = TRY(sink._properties.Get(mediaformat::kWidth));
    sink._height = TRY(sink._properties.Get(mediaformat::kHeight));
    sink._stream = stream;  // from here on FinishStream is owed
    TRY(stream->InitStream(sink._properties));
    sink._handler =
        TRY(stream->SetPixelStream(sink._properties, pixelFormat->GetChannelOffsets(), SETPIXELHANDLERFLAGS::NONE));
    return &sink;
}

Result<void> ImageImporter::FinishSinks() {
    Result<void> first;
    const auto keepFirst = [&first](Result<void> result) {
        if (first && !result)
            first = std::move(result);
    };
    for (Int i = 0; i < _sinkCount; ++i) {
        RowSink sink = std::exchange(_sinks[i], RowSink());
        if (!sink._stream)
            continue;
        keepFirst(sink._handler.Free());
        keepFirst(sink._stream->FinishStream(sink._properties));
    }
    _sinkCount = 0;
    return first;
}

Result<Int> ImageImporter::AddJob(Int width, Int height) {
    _job = TRY(GetSessionProgress()->AddProgressJob(Float(width) * Float(height), _jobName));
    return _job;
}

Result<void> ImageImporter::ReportProgress(Int row, Int total) {
    return _progress->SetProgressAndCheckBreak(_job, Float(row) / Float(total));
}

Int ImageImporter::GetBytesLeft(const InputStreamRef& stream) {
    const Int left = stream->BytesAvailable();
    return left < 0 ? std::numeric_limits<Int>::max() : left;
}

}  // namespace orvik
