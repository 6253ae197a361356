#include "imexport/frame/media_io_exporter.h"

namespace orvik {

Result<const std::byte*> RowSource::GetRow(Int y) {
    if (_handler.find)
        return _handler.find({0, y, _width});
    if (_scratch.GetSize() != _rowBytes)
        TRY(_scratch.Allocate(_rowBytes));
    TRY(ReadRow(y, _scratch.GetFirst()));
    return static_cast<const std::byte*>(_scratch.GetFirst());
}

FileFormat FileExporter::GetFileFormat() const {
    return Registry::Find<FileFormatInterface>(kFileFormatRegistry, _entry ? _entry->format : Id());
}

Result<Data> FileExporter::GetData(const Id& id) const {
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

Result<void> FileExporter::CheckInputCount(size_t count) const {
    if (count != 1)
        return IllegalStateError();
    return {};
}

Result<void> FileExporter::ResetConverter() {
    ForgetStreams();
    ResetOutputStreams();
    _analyzed = _chosen = _prepared = false;
    return {};
}

Result<void> FileExporter::Analyze(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) {
    if (_analyzed)
        return {};
    _analyzed = true;
    TRY(CheckInputCount(inputs.size()));
    TRY(AnalyzeInput(inputs, targetTime, flags));
    Result<void> found = FindStreams(inputs[0]);
    _chosen = bool(found);
    if (!found)
        ForgetStreams();  // an unwritable picture must not reach the later phases
    return found;
}

Result<void> FileExporter::FindStreams(const MediaConverterRef& input) {
    BaseArray<OfferedStream> offered;
    BaseArray<Int> above;  // indices of the current stream's ancestors, root first
    const StreamVisitor visit = [&](const MediaStreamRef& stream, const MediaStreamRef&, Int depth) -> Result<Bool> {
        OfferedStream entry;
        entry.stream = stream;
        entry.image = Cast<MediaStreamImageDataExportInterface>(stream);
        entry.format = stream->GetFormat(stream->GetSelectedFormat());
        if (entry.image)
            entry.type = TRY(entry.format.Get(mediaformat::kType));
        entry.depth = depth;
        TRY(above.Resize(depth));
        entry.parent = depth > 0 ? above[depth - 1] : -1;
        TRY(above.Append(offered.GetCount()));
        TRY(offered.Append(std::move(entry)));
        return true;
    };
    const BaseArray<MediaStreamRef> roots = TRY(input->GetOutputStreams(false));
    for (const MediaStreamRef& root : roots)
        TRY(WalkStreams(root, visit));
    return ChooseStreams(offered.ToBlock());
}

Result<void> FileExporter::PrepareExecute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) {
    TRY(CheckInputCount(inputs.size()));
    if (!_chosen)
        return IllegalStateError();
    TRY(PrepareExecuteInput(inputs, targetTime, flags));
    _prepared = true;
    return {};
}

Result<void> FileExporter::Execute(Inputs inputs, TimeValue targetTime, MEDIASESSIONFLAGS flags) {
    TRY(CheckInputCount(inputs.size()));
    if (!_prepared)
        return IllegalStateError();
    TRY(ExecuteInput(inputs, targetTime, flags));
    Result<void> first = OpenRows();
    if (first)
        first = WriteToUrl();
    while (!_sources.IsEmpty())
        KeepFirstError(first, FinishSource(RowSourceRef(_sources[0])));  // required after InitStream, even on failure
    return first;
}

Result<void> FileExporter::WriteToUrl() {
    const OutputStreamRef output = TRY(GetOutputUrl().OpenOutputStream());
    Result<void> first = WriteFile(output);
    KeepFirstError(first, output->Close());
    return first;
}

Result<void> FileExporter::Close(Inputs inputs) {
    ForgetStreams();
    _chosen = _prepared = false;
    return CloseInputs(inputs);
}

Result<RowSourceRef> FileExporter::OpenSource(const ImageExportStreamRef& stream, const PixelFormat& format,
                                              const ColorProfile& profile) {
    RowSourceRef source = TRY(NewObj<RowSource>());
    source->_properties = TRY(MediaStreamProperties::FromStream(stream));
    source->_format = format;
    source->_width = TRY(source->_properties.Get(mediaformat::kWidth));
    source->_height = TRY(source->_properties.Get(mediaformat::kHeight));
    source->_rowBytes = format->GetBytesPerLine(source->_width);
    source->_stream = stream;
    TRY(_sources.Append(source));  // FinishStream is required from here on
    TRY(stream->InitStream(source->_properties));
    const GETPIXELHANDLERFLAGS flags =
        profile.HasProfile() ? GETPIXELHANDLERFLAGS::FORCECOLORPROFILECONVERSION : GETPIXELHANDLERFLAGS::NONE;
    source->_handler = TRY(stream->GetPixelStream(source->_properties, format, profile, flags));
    if (!source->_handler)
        return IllegalStateError();
    return source;
}

Result<void> FileExporter::FinishSource(const RowSourceRef& source) {
    const RowSourceRef gone = source;
    const auto* const found = std::find(_sources.begin(), _sources.end(), gone);
    if (found == _sources.end())
        return {};
    _sources.Erase(found - _sources.begin());
    gone->_handler.Free();
    return gone->_stream->FinishStream(gone->_properties);
}

}  // namespace orvik
