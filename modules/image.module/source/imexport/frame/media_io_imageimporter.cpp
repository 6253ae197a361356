#include "imexport/frame/media_io_imageimporter.h"

namespace orvik {

Result<void> ImageImporter::Prepare() {
    const Bool isPictureWanted = TRY(IsAnySubscribed<MediaStreamImageBaseInterface>());
    if (!isPictureWanted)
        return {};
    const BaseArray<MediaStreamRef> streams = TRY(GetOutputStreams(true));
    for (const MediaStreamRef& stream : streams) {
        if (!Cast<MediaStreamImageBaseInterface>(stream))
            continue;
        const MediaStreamFormat format = stream->GetFormat(stream->GetSelectedFormat());
        const Int width = TRY(format.Get(mediaformat::kWidth));
        const Int height = TRY(format.Get(mediaformat::kHeight));
        TRY(AddPictureJob(width, height));
        break;
    }
    return {};
}

Result<void> ImageImporter::Deliver(const InputStreamRef& stream) {
    TRY(DeliverMetadata());
    const Bool isPictureWanted = TRY(IsAnySubscribed<MediaStreamImageBaseInterface>());
    if (!isPictureWanted)
        return {};
    _jobHasSink = false;
    Result<void> first = DecodePixels(stream);
    KeepFirstError(first, FinishSinks());  // required after InitStream, even on failure
    return first;
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

Result<ImageImportStreamRef> ImageImporter::AddImageStream(const MediaStreamFormat& format,
                                                           const MediaStreamRef& parent, const Id& streamClass) {
    ImageImportStreamRef stream = TRY(ClassRef(streamClass).Create<MediaStreamImageDataImportInterface>());
    TRY(stream->AddFormat(Data(Int(0)), format));
    TRY(AddStream(stream, parent));
    return stream;
}

Result<RowSinkRef> ImageImporter::OpenSink(const ImageImportStreamRef& stream, const PixelFormat& pixelFormat) {
    RowSinkRef sink = TRY(NewObj<RowSink>());
    TRY(_sinks.Append(sink));
    sink->_format = pixelFormat;
    if (!stream)
        return sink;
    sink->_properties = TRY(MediaStreamProperties::FromStream(stream));
    sink->_width = TRY(sink->_properties.Get(mediaformat::kWidth));
    sink->_height = TRY(sink->_properties.Get(mediaformat::kHeight));
    sink->_rowBytes = pixelFormat->GetBytesPerLine(sink->_width);
    if (!std::exchange(_jobHasSink, true)) {
        sink->_reporter = this;
        sink->_job = _job;
    }
    if (stream->IsSubscribed())
        TRY(InitSink(*sink, stream));
    return sink;
}

Result<void> ImageImporter::InitSink(RowSink& sink, const ImageImportStreamRef& stream) {
    // Fail before decoding if the pixels cannot be converted for display.
    const PixelFormat shown = PixelFormats::Get(pixelformats::kRgbaU8);
    bool convertsProfile = false;
    TRY(shown->GetConvertPixelFunc(sink._format, sink._format->GetChannelOffsets(), shown->GetChannelOffsets(), nullptr,
                                   nullptr, CONVERTPIXELFLAGS::NONE, convertsProfile));
    TRY(sink._properties.Set(mediaformat::kPixelFormat, sink._format));
    sink._stream = stream;  // FinishStream is required from here on
    TRY(stream->InitStream(sink._properties));
    sink._handler =
        TRY(stream->SetPixelStream(sink._properties, sink._format->GetChannelOffsets(), SETPIXELHANDLERFLAGS::NONE));
    return {};
}

Result<void> ImageImporter::FinishSinks() {
    Result<void> first;
    for (const RowSinkRef& sink : _sinks) {
        const ImageImportStreamRef stream = std::exchange(sink->_stream, nullptr);
        if (!stream)
            continue;
        KeepFirstError(first, sink->_handler.Free());
        KeepFirstError(first, stream->FinishStream(sink->_properties));
    }
    _sinks.Reset();
    return first;
}

Result<Int> ImageImporter::AddPictureJob(Int width, Int height) {
    const Int job = TRY(AddJob(Float(width) * Float(height), _jobName));
    SelectJob(job);
    return job;
}

void ImageImporter::SelectJob(Int job) {
    _job = job;
    _jobHasSink = false;
}

}  // namespace orvik
