#include "session/mediasession_baseimpl.h"

namespace orvik {

Result<void> MediaBaseImpl::ConnectToSession(const MediaSessionRef& session) {
    if (!session)
        return NullptrError();
    if (_session.Get())
        return IllegalStateError();
    _session = session;
    return {};
}

Result<BaseArray<MediaConverterRef>> MediaConverterBaseImpl::GetInputConverter() const {
    return GetSession()->GetInputsOf(this);
}

Result<BaseArray<MediaStreamRef>> MediaConverterBaseImpl::GetOutputStreams(Bool flat) const {
    BaseArray<MediaStreamRef> streams;
    if (!flat) {
        TRY(streams.CopyFrom(_streams));
        return streams;
    }
    const StreamVisitor append = [&streams](const MediaStreamRef& stream, const MediaStreamRef&, Int) -> Result<Bool> {
        TRY(streams.Append(stream));
        return true;
    };
    for (const MediaStreamRef& root : _streams)
        TRY(WalkStreams(root, append));
    return streams;
}

Result<Data> MediaConverterBaseImpl::GetData(const Id& id) const {
    static constexpr const Id* kSupportKeys[] = {
        &mediacapability::kInputSupportsImage.GetId(),          &mediacapability::kInputSupportsVideo.GetId(),
        &mediacapability::kInputSupportsAudio.GetId(),          &mediacapability::kOutputSupportsImage.GetId(),
        &mediacapability::kOutputSupportsVideo.GetId(),         &mediacapability::kOutputSupportsAudio.GetId(),
        &mediacapability::kOutputSupportsSystemOptions.GetId(),
    };
    for (const Id* key : kSupportKeys) {
        if (id == *key)
            return Data(Bool(false));
    }
    return MediaBaseImpl::GetData(id);
}

Result<void> MediaInputBaseImpl::RequireNoInputs(Inputs inputs, SourceLocation where) {
    if (!inputs.empty())
        return MakeStandardError(where, 3);
    return {};
}

}  // namespace orvik
