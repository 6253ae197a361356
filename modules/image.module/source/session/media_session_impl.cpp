#include "session/media_session_impl.h"

#include "base/registration.h"
#include "session/mediasession_streamimpl.h"

namespace orvik {

Result<void> MediaSessionImpl::Construct() {
    Result<MediaSessionProgressRef> progress =
        ClassRef(mediaclasses::kSessionProgress).Create<MediaSessionProgressInterface>();
    if (!progress && progress.GetError()->IsKindOf(errorid::kUnresolved))
        return NullptrError();
    _progress = TRY(std::move(progress));
    return {};
}

Result<void> MediaSessionImpl::ConnectMediaConverter(const MediaConverterRef& input, const MediaConverterRef& output) {
    if (!input || !output || input == output)
        return IllegalArgumentError();
    if (input->SupportImportStrategy() && !output->SupportImportStrategy())
        return IllegalStateError("Output doesn't support required import strategy.");
    if (output->SupportExportStrategy() && !input->SupportExportStrategy())
        return IllegalStateError("Input doesn't support required export strategy.");

    const MediaSessionRef self(this);
    const MediaSessionRef inputSession = input->GetSession();
    if (inputSession && inputSession != self)
        return IllegalArgumentError("input is already part of another session");
    const MediaSessionRef outputSession = output->GetSession();
    if (outputSession && outputSession != self)
        return IllegalArgumentError("output is already part of another session");
    if (!inputSession)
        TRY(input->ConnectToSession(self));
    if (!outputSession)
        TRY(output->ConnectToSession(self));

    BaseArray<MediaConverterRef>* inputs = TRY(_connections.FindOrCreate(output));
    return inputs->Append(input);
}

Result<void> MediaSessionImpl::Convert(TimeValue targetTime, MEDIASESSIONFLAGS flags) {
    using Inputs = MediaConverterInterface::Inputs;
    TRY(ForEachOutput(
        [&](const MediaConverterRef& output, Inputs inputs) { return output->Analyze(inputs, targetTime, flags); }));
    if (static_cast<int32_t>(flags) & static_cast<int32_t>(MEDIASESSIONFLAGS::RUNONLYANALYZE))
        return {};
    TRY(ForEachOutput([&](const MediaConverterRef& output, Inputs inputs) {
        return output->PrepareExecute(inputs, targetTime, flags);
    }));
    return ForEachOutput(
        [&](const MediaConverterRef& output, Inputs inputs) { return output->Execute(inputs, targetTime, flags); });
}

Result<void> MediaSessionImpl::Close() {
    return ForEachOutput(
        [](const MediaConverterRef& output, MediaConverterInterface::Inputs inputs) { return output->Close(inputs); });
}

Result<BaseArray<MediaConverterRef>> MediaSessionImpl::GetInputsOf(const MediaConverterInterface* output) const {
    BaseArray<MediaConverterRef> copy;
    const MediaConverterRef key(const_cast<MediaConverterInterface*>(output));  // keys are compared, never written to
    if (const BaseArray<MediaConverterRef>* inputs = _connections.Find(key))
        TRY(copy.CopyFrom(*inputs));
    return copy;
}

template <class F>
Result<void> MediaSessionImpl::ForEachOutput(F&& operation) const {
    BaseArray<MediaConverterRef> outputs;
    for (const auto& connection : _connections)
        TRY(outputs.Append(connection.key));
    for (const MediaConverterRef& output : outputs) {
        const BaseArray<MediaConverterRef> inputs = TRY(GetInputsOf(output.GetPointer()));
        TRY(operation(output, inputs.ToBlock()));
    }
    return {};
}

Result<void> RegisterMediaSession(Publisher& publisher) {
    TRY(publisher.PublishClass<MediaBaseImpl>(mediaclasses::kMediaBase));
    TRY(publisher.PublishClass<MediaStreamBaseImpl>(mediaclasses::kStreamBase));
    TRY(publisher.PublishClass<MediaStreamImageBaseImpl>(mediaclasses::kStreamImageBase));
    TRY(publisher.PublishClass<MediaStreamImageDataImportImpl>(mediaclasses::kStreamImport));
    TRY(publisher.PublishClass<MediaStreamImageDataExportImpl>(mediaclasses::kStreamExport));
    TRY(publisher.PublishClass<MediaStreamExifDataImpl>(mediaclasses::kStreamExif));
    TRY(publisher.PublishClass<MediaStreamFormatInterface>(mediaclasses::kStreamFormat));
    TRY(publisher.PublishClass<MediaStreamPropertiesInterface>(mediaclasses::kStreamProperties));
    TRY(publisher.PublishClass<MediaConverterBaseImpl>(mediaclasses::kConverterBase));
    return publisher.PublishClass<MediaSessionImpl>(mediaclasses::kSession);
}

}  // namespace orvik
